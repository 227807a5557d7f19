#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ChipMemories.h"
#include "chip/SimulatedChip.h"

namespace {

using NerioSwitchApi::BusException;
using NerioSwitchApi::RegisterHandle;
using testing::Each;
using testing::ElementsAre;

struct SimulatedChip : testing::Test {
    /** A chip with just these memories, none of its own. */
    Belmo::Ptr<Chip::SimulatedChip> chipWith(std::vector<Chip::MemoryDescription> const& memories) const {
        return Belmo::make<Chip::SimulatedChip>(*profile, memories, std::nullopt);
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip = chipWith({aclMemory(), l3LagMemory(), l3FloodMemory()});

    void write(char const* path, U32 word) { chip->write(chip->address(path), word); }
    U32 read(char const* path) { return chip->read(chip->address(path)); }
    std::vector<RegisterHandle> rowOf(Chip::MemoryDescription const& memory) {
        std::vector<RegisterHandle> handles;
        for (auto const& path : memory.dataRegisters)
            handles.push_back(chip->address(path));
        handles.push_back(chip->address(memory.controlRegister));
        return handles;
    }
    std::vector<U32> aclRow(U32 number) {
        auto const row = chip->indirectMemory("acl[0]").row(number);
        return {row.begin(), row.end()};
    }
};

TEST_F(SimulatedChip, RegistersStartAsZeroAndKeepWhatIsWritten) {
    EXPECT_THAT(chip->memory(), Each(0u));
    write("egress/port[3]/vlan_cfg", 0x12345678);
    EXPECT_EQ(read("egress/port[3]/vlan_cfg"), 0x12345678u);
    EXPECT_EQ(read("egress/port[4]/vlan_cfg"), 0u);
}

TEST_F(SimulatedChip, HandlesKnowTheirPath) {
    EXPECT_EQ(chip->path(chip->address("egress/port[3]/vlan_cfg")), "egress/port[3]/vlan_cfg");
}

TEST_F(SimulatedChip, RefusesAPathItDoesNotHave) {
    EXPECT_THROW(chip->address("egress/port[52]/vlan_cfg"), NerioSwitchApi::UnknownRegisterException);
}

TEST_F(SimulatedChip, ARowPassesOverHandlesThatDoNotExist) {
    std::vector<RegisterHandle> const handles{chip->address("egress/port[0]/vlan_cfg"), RegisterHandle(),
                                              chip->address("egress/port[1]/vlan_cfg")};
    U32 const words[] = {1, 2, 3};
    chip->writeRow(handles, words);
    EXPECT_EQ(read("egress/port[0]/vlan_cfg"), 1u);
    EXPECT_EQ(read("egress/port[1]/vlan_cfg"), 3u);
}

TEST_F(SimulatedChip, EqualWritesMakeEqualMemories) {
    auto const other = chipWith({aclMemory(), l3LagMemory(), l3FloodMemory()});
    U32 const words[] = {1, 2, 3, 4, 1u << 18 | 7};
    chip->writeRow(rowOf(aclMemory()), words);
    EXPECT_THAT(chip->memory(), testing::Not(testing::ElementsAreArray(other->memory())));
    other->writeRow(rowOf(aclMemory()), words);
    EXPECT_THAT(chip->memory(), testing::ElementsAreArray(other->memory()));
}

TEST_F(SimulatedChip, StateForgetsWhichRowWasAccessedLast) {
    auto const other = chipWith({aclMemory(), l3LagMemory(), l3FloodMemory()});
    U32 const first[] = {1, 2, 3, 4, 1u << 18 | 7};
    U32 const second[] = {5, 6, 7, 8, 1u << 18 | 9};
    chip->writeRow(rowOf(aclMemory()), first);
    EXPECT_NE(chip->state(), other->state());
    chip->writeRow(rowOf(aclMemory()), second);
    other->writeRow(rowOf(aclMemory()), second);
    other->writeRow(rowOf(aclMemory()), first);
    EXPECT_EQ(chip->state(), other->state());
    EXPECT_THAT(chip->memory(), testing::Not(testing::ElementsAreArray(other->memory())));
}

TEST_F(SimulatedChip, DataWithoutAStrobeChangesNoRow) {
    U32 const words[] = {1, 2, 3, 4, 7};
    chip->writeRow(rowOf(aclMemory()), words);
    EXPECT_THAT(aclRow(7), Each(0u));
    EXPECT_EQ(read("ingress/processor_acl[0]/hash_data3"), 4u);
    EXPECT_EQ(read("ingress/processor_acl[0]/hash_ctl"), 7u);
}

TEST_F(SimulatedChip, AStrobeStoresTheDataIntoTheAddressedRow) {
    U32 const words[] = {1, 2, 3, 4, 1u << 18 | 7};
    chip->writeRow(rowOf(aclMemory()), words);
    EXPECT_THAT(aclRow(7), ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(aclRow(6), Each(0u));
    EXPECT_THAT(aclRow(8), Each(0u));
    write("ingress/processor_acl[0]/hash_data1", 20);
    EXPECT_THAT(aclRow(7), ElementsAre(1, 2, 3, 4));
    write("ingress/processor_acl[0]/hash_ctl", 1u << 18 | 8);
    EXPECT_THAT(aclRow(8), ElementsAre(1, 20, 3, 4));
}

TEST_F(SimulatedChip, WaysLieOneBehindTheOther) {
    U32 const words[] = {1, 2, 3, 4, 1u << 18 | 1u << 11 | 7};
    chip->writeRow(rowOf(aclMemory()), words);
    EXPECT_THAT(aclRow(7), Each(0u));
    EXPECT_THAT(aclRow(1500 + 7), ElementsAre(1, 2, 3, 4));
}

TEST_F(SimulatedChip, AnotherProcessorsMemoryIsNotTouched) {
    write("ingress/processor_acl[1]/hash_ctl", 1u << 18 | 7);
    write("ingress/processor_acl[0]/hash_data0", 1);
    EXPECT_THAT(aclRow(7), Each(0u));
}

TEST_F(SimulatedChip, AStrobeBeyondTheEndIsRefusedAndChangesNothing) {
    U32 const last[] = {1, 2, 3, 4, 1u << 18 | 1499};
    chip->writeRow(rowOf(aclMemory()), last);
    EXPECT_THAT(aclRow(1499), ElementsAre(1, 2, 3, 4));
    std::vector<U32> const before(chip->memory().begin(), chip->memory().end());
    EXPECT_THROW(write("ingress/processor_acl[0]/hash_ctl", 1u << 18 | 1500), BusException);
    EXPECT_THROW(write("ingress/processor_l3[0]/hash_ctl", 9u << 18 | 1u << 17 | 56), BusException);
    EXPECT_THAT(chip->memory(), testing::ElementsAreArray(before));
    try {
        write("ingress/processor_acl[0]/hash_ctl", 1u << 18 | 1u << 11 | 1500);
        FAIL();
    } catch (BusException const& failure) {
        EXPECT_STREQ(failure.what(),
                     "ingress/processor_acl[0]/hash_ctl = 0x00040DDC: row 1500 of way 1 is beyond the end of "
                     "acl[0], 1500 rows in 2 ways");
    }
}

TEST_F(SimulatedChip, MemoriesBehindOneControlRegisterTellThemselvesApart) {
    U32 const lag[] = {1, 2, 9u << 18 | 1u << 17 | 5};
    U32 const flood[] = {3, 4, 10u << 18 | 1u << 17 | 5};
    U32 const nobody[] = {5, 6, 11u << 18 | 1u << 17 | 5};
    auto const handles = rowOf(l3LagMemory());
    chip->writeRow(handles, lag);
    chip->writeRow(handles, flood);
    chip->writeRow(handles, nobody);
    EXPECT_THAT(chip->indirectMemory("l3Lag[0]").row(5), ElementsAre(1, 2));
    EXPECT_THAT(chip->indirectMemory("l3Flood[0]").row(5), ElementsAre(3, 4));
}

TEST_F(SimulatedChip, AReadStrobeLoadsTheDataRegisters) {
    U32 const words[] = {1, 2, 9u << 18 | 1u << 17 | 5};
    chip->writeRow(rowOf(l3LagMemory()), words);
    write("ingress/processor_l3[0]/hash_data0", 77);
    write("ingress/processor_l3[0]/hash_ctl", 9u << 18 | 1u << 16 | 5);
    EXPECT_EQ(read("ingress/processor_l3[0]/hash_data0"), 1u);
    EXPECT_EQ(read("ingress/processor_l3[0]/hash_data1"), 2u);
    EXPECT_THAT(chip->indirectMemory("l3Lag[0]").row(5), ElementsAre(1, 2));
    EXPECT_THROW(write("ingress/processor_l3[0]/hash_ctl", 9u << 18 | 1u << 16 | 56), BusException);
}

TEST_F(SimulatedChip, BothStrobesStore) {
    U32 const words[] = {1, 2, 9u << 18 | 1u << 17 | 1u << 16 | 5};
    chip->writeRow(rowOf(l3LagMemory()), words);
    EXPECT_THAT(chip->indirectMemory("l3Lag[0]").row(5), ElementsAre(1, 2));
}

TEST_F(SimulatedChip, ReadsTheRowThatAControlWordStores) {
    auto const handles = rowOf(l3LagMemory());
    U32 const seven[] = {70, 71, 9u << 18 | 1u << 17 | 7};
    U32 const eight[] = {80, 81, 9u << 18 | 1u << 17 | 8};
    chip->writeRow(handles, seven);
    chip->writeRow(handles, eight);
    auto const read = [&](U32 control) {
        std::vector<U32> words{1, 2, control};
        chip->readRow(handles, words);
        return words;
    };
    EXPECT_THAT(read(seven[2]), ElementsAre(70, 71, seven[2]));
    EXPECT_THAT(read(eight[2]), ElementsAre(80, 81, eight[2]));
    EXPECT_THAT(read(9u << 18 | 1u << 17 | 9), ElementsAre(0, 0, 9u << 18 | 1u << 17 | 9));
    EXPECT_THAT(read(10u << 18 | 1u << 17 | 7), ElementsAre(0, 0, 10u << 18 | 1u << 17 | 7))
        << "the same row of another memory";
    EXPECT_THROW(read(9u << 18 | 1u << 17 | 63), BusException);
}

TEST_F(SimulatedChip, ReadsTheRegistersOfARowThatNoControlWordStores) {
    auto const handles = rowOf(l3LagMemory());
    U32 const seven[] = {70, 71, 9u << 18 | 1u << 17 | 7};
    chip->writeRow(handles, seven);
    std::vector<U32> words{1, 2, 9u << 18 | 7};
    chip->readRow(handles, words);
    EXPECT_THAT(words, ElementsAre(70, 71, seven[2])) << "without a strobe";
    std::vector<U32> alone{5};
    chip->readRow(std::vector{chip->address("egress/port[3]/vlan_cfg")}, alone);
    EXPECT_THAT(alone, ElementsAre(0));
    std::vector<U32> more{5, 6};
    chip->readRow(std::vector{RegisterHandle()}, more);
    EXPECT_THAT(more, ElementsAre(5, 6)) << "words without a register stay";
}

TEST_F(SimulatedChip, RefusesAMemoryItDoesNotHave) {
    EXPECT_THROW(chip->indirectMemory("acl[9]"), Belmo::RangeException);
}

TEST_F(SimulatedChip, MemoriesSelectedByDifferentBitsTellThemselvesApart) {
    auto narrow = l3LagMemory();
    narrow.name = "narrow";
    narrow.select = {22, 1};
    narrow.selected = 1;
    auto const other = chipWith({l3LagMemory(), narrow});
    U32 const both[] = {1, 2, 1u << 22 | 9u << 18 | 1u << 17 | 5};
    U32 const one[] = {3, 4, 1u << 22 | 8u << 18 | 1u << 17 | 6};
    other->writeRow(rowOf(l3LagMemory()), both);
    other->writeRow(rowOf(l3LagMemory()), one);
    EXPECT_THAT(other->indirectMemory("l3Lag[0]").row(5), ElementsAre(1, 2));
    EXPECT_THAT(other->indirectMemory("l3Lag[0]").row(6), ElementsAre(0, 0));
    EXPECT_THAT(other->indirectMemory("narrow").row(5), ElementsAre(1, 2));
    EXPECT_THAT(other->indirectMemory("narrow").row(6), ElementsAre(3, 4));
}

TEST_F(SimulatedChip, RefusesAMemoryBehindRegistersItDoesNotHave) {
    auto memory = aclMemory();
    memory.controlRegister = "ingress/processor_acl[9]/hash_ctl";
    EXPECT_THROW(chipWith({memory}), NerioSwitchApi::UnknownRegisterException);
}

TEST_F(SimulatedChip, TheTextOfAMemorySaysHowItsRowsAreSelected) {
    auto memory = aclMemory();
    auto const plain = memory.text();
    memory.oneHotRow = true;
    auto const byBits = memory.text();
    memory.takesIdleWords = true;
    EXPECT_NE(byBits, plain);
    EXPECT_NE(memory.text(), byBits);
}

using SimulatedChipDeathTest = SimulatedChip;

TEST_F(SimulatedChipDeathTest, HandlesOfNoRegisterAreAProgrammingError) {
    EXPECT_DEATH(chip->write(RegisterHandle(), 0), "handle.number < controlOf_.size\\(\\)");
    EXPECT_DEATH(chip->read({chip->registers().size()}), "handle.number < registers_.size\\(\\)");
}

TEST_F(SimulatedChipDeathTest, AMemoryLongerThanItsRowFieldIsAProgrammingError) {
    auto memory = aclMemory();
    memory.rowsPerWay = 2049;
    EXPECT_DEATH(chipWith({memory}), "reachesRows\\(description_\\)");
    memory.rowsPerWay = memory.row.width + 1u;
    EXPECT_NO_THROW(chipWith({memory}));
    memory.oneHotRow = true;
    EXPECT_DEATH(chipWith({memory}), "reachesRows\\(description_\\)");
}

TEST_F(SimulatedChipDeathTest, RowsEndWithTheMemory) {
    EXPECT_DEATH(chip->indirectMemory("acl[0]").row(3000), "number < description_.rows\\(\\)");
}

}  // namespace
