#include <algorithm>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "chip/SimulatedChip.h"

namespace {

using NerioSwitchApi::BusException;
using testing::ElementsAre;

/** Starts a read of a hit memory, with the number of the read in its low bits. */
constexpr U32 trigger = 0x2D0000;
Belmo::String const processor = "pipeline[0]/processor/";

struct HitMemory : testing::Test {
    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip = Chip::simulatedChip(*profile);

    void write(Belmo::String const& path, U32 word) { chip->write(chip->address(path), word); }
    U32 read(Belmo::String const& path) { return chip->read(chip->address(path)); }
    /** A packet hits that row of the hash test table. */
    void hit(U32 way, U32 row) { chip->hitIs(processor + "hash_ctl", 1u << 15 | way << 14 | row); }
    /** Whether the chip is as it was made. */
    bool isClear() const { return std::ranges::none_of(chip->state(), std::identity()); }
    /** The bits that one read finds set. */
    std::vector<U32> bitsOf(U32 number, Belmo::String const& prefix = processor) {
        write(prefix + "hash_ctl", trigger + number);
        std::vector<U32> bits;
        for (U32 bit = 0; bit < 96; ++bit) {
            auto const word = read(prefix + "hash_data" + std::to_string(bit / 32));
            if ((word >> bit % 32 & 1) != 0) bits.push_back(bit);
        }
        return bits;
    }
};

TEST_F(HitMemory, AReadHasABitForTwoRowsOfEachWay) {
    for (U32 row = 0; row < 8; ++row) {
        hit(0, row);
        EXPECT_THAT(bitsOf(row / 2), ElementsAre(row % 2 == 0 ? 0 : 36)) << row;
        hit(1, row);
        EXPECT_THAT(bitsOf(row / 2), ElementsAre(row % 2 == 0 ? 9 : 45)) << row;
    }
    for (auto const& [way, row] : {std::pair{0u, 4u}, {0u, 5u}, {1u, 4u}, {1u, 5u}, {1u, 6u}})
        hit(way, row);
    EXPECT_THAT(bitsOf(2), ElementsAre(0, 9, 36, 45));
    EXPECT_THAT(bitsOf(3), ElementsAre(9));
}

TEST_F(HitMemory, AReadClearsWhatItReadAndNoMore) {
    hit(0, 2);
    hit(0, 3);
    hit(0, 4);
    EXPECT_THAT(bitsOf(1), ElementsAre(0, 36));
    EXPECT_THAT(bitsOf(1), ElementsAre());
    EXPECT_THAT(bitsOf(2), ElementsAre(0));
    EXPECT_TRUE(isClear());
}

TEST_F(HitMemory, AHitCountsOnce) {
    hit(1, 7);
    hit(1, 7);
    EXPECT_THAT(bitsOf(3), ElementsAre(45));
}

TEST_F(HitMemory, EachPipelineHasItsOwn) {
    hit(0, 0);
    EXPECT_THAT(bitsOf(0, "pipeline[1]/processor/"), ElementsAre());
    EXPECT_THAT(bitsOf(0), ElementsAre(0));
}

TEST_F(HitMemory, HitsAreStateUntilTheyAreRead) {
    auto const before = chip->state();
    hit(0, 0);
    EXPECT_NE(chip->state(), before);
    bitsOf(0);
    EXPECT_EQ(chip->state(), before);
}

TEST_F(HitMemory, ReadsLeaveRowsAloneAndStoredRowsLeaveHitsAlone) {
    hit(0, 5);
    write(processor + "hash_data0", 1);
    write(processor + "hash_data1", 2);
    write(processor + "hash_ctl", 0x8005);
    auto const& rows = chip->indirectMemory(processor + "hashTest");
    EXPECT_THAT(rows.row(5), ElementsAre(1, 2));
    EXPECT_THAT(bitsOf(2), ElementsAre(36));
    EXPECT_THAT(rows.row(5), ElementsAre(1, 2));
    EXPECT_THAT(rows.row(2), ElementsAre(0, 0));
}

TEST_F(HitMemory, OnlyTheWholeTriggerReads) {
    hit(0, 0);
    write(processor + "hash_ctl", 0x2C0000);
    write(processor + "hash_ctl", 0x290000);
    EXPECT_EQ(read(processor + "hash_data0"), 0u);
    EXPECT_THAT(bitsOf(0), ElementsAre(0));
}

TEST_F(HitMemory, AReadBeyondTheEndIsRefused) {
    EXPECT_THROW(write(processor + "hash_ctl", trigger + 4), BusException);
}

TEST_F(HitMemory, RefusesAHitOnWhatHasNoHitBits) {
    auto const failure = [&](Belmo::String const& path, U32 word) -> Belmo::String {
        try {
            chip->hitIs(path, word);
        } catch (Belmo::RangeException const& refused) {
            return refused.what();
        }
        return {};
    };
    EXPECT_EQ(failure("ingress/processor_acl[0]/hash_ctl", 1u << 18 | 7),
              "the rows of ingress/processor_acl[0]/table0/pipeline0 have no hit bits");
    EXPECT_EQ(failure("ingress/processor_acl[0]/hash_ctl", 1u << 18 | 7u << 13),
              "ingress/processor_acl[0]/hash_ctl = 0x0004E000 stores no row");
    EXPECT_EQ(failure(processor + "hash_ctl", 0x0005),
              "pipeline[0]/processor/hash_ctl = 0x00000005 stores no row");
    EXPECT_EQ(failure(processor + "hash_ctl", trigger),
              "pipeline[0]/processor/hash_ctl = 0x002D0000 stores no row");
    EXPECT_EQ(failure("egress/port[3]/vlan_cfg", 0x8005),
              "egress/port[3]/vlan_cfg = 0x00008005 stores no row");
    EXPECT_THROW(chip->hitIs(processor + "hash_ctl", 0x8008), BusException);
    EXPECT_THROW(chip->hitIs("pipeline[9]/processor/hash_ctl", 0x8000),
                 NerioSwitchApi::UnknownRegisterException);
    EXPECT_TRUE(isClear());
}

/** Rows whose bits lie elsewhere than one per way: a later read, and one bit for two ways. */
struct SharedHitMemory : HitMemory {
    static Chip::MemoryDescription rows() {
        return {.name = "rows",
                .dataRegisters = {"ingress/processor_l4[0]/hash_data0"},
                .controlRegister = "ingress/processor_l4[0]/hash_ctl",
                .row = {0, 3},
                .writeStrobe = {17, 1},
                .rowsPerWay = 8,
                .way = {14, 2},
                .ways = 4,
                .hits = {.memory = "bits", .bits = {3, 12}, .rowsPerBit = 16, .firstRow = 8}};
    }
    static Chip::MemoryDescription bits() {
        return {.name = "bits",
                .dataRegisters = {"ingress/processor_l3[0]/hash_data0", "ingress/processor_l3[0]/hash_data1",
                                  "ingress/processor_l3[0]/hash_data2"},
                .controlRegister = "ingress/processor_l3[0]/hash_ctl",
                .row = {0, 12},
                .rowsPerWay = 16,
                .readStrobe = {16, 1},
                .select = {18, 4},
                .selected = 11,
                .clearedByRead = true};
    }
};

TEST_F(SharedHitMemory, OfAnotherProcessorTakesHitsWhereItsMappingSays) {
    chip = Belmo::make<Chip::SimulatedChip>(*profile, std::vector{rows(), bits()}, std::nullopt);
    auto const hitRow = [&](U32 way, U32 row) {
        chip->hitIs("ingress/processor_l4[0]/hash_ctl", 1u << 17 | way << 14 | row);
    };
    hitRow(0, 0);
    hitRow(1, 1);
    hitRow(2, 0);
    hitRow(3, 7);
    EXPECT_THAT(bitsOf(8, "ingress/processor_l3[0]/"), ElementsAre(3, 12));
    EXPECT_THAT(bitsOf(8 + 4, "ingress/processor_l3[0]/"), ElementsAre(39));
    EXPECT_THAT(bitsOf(8 + 7, "ingress/processor_l3[0]/"), ElementsAre(48));
    EXPECT_TRUE(isClear());
}

TEST_F(SharedHitMemory, LookUpsSetAHitByTheRowsNumber) {
    chip = Belmo::make<Chip::SimulatedChip>(*profile, std::vector{bits(), rows()}, std::nullopt);
    chip->indirectMemory("rows").hitIs(17);
    EXPECT_THAT(bitsOf(8, "ingress/processor_l3[0]/"), ElementsAre(48));
    EXPECT_THROW(chip->indirectMemory("bits").hitIs(0), Belmo::RangeException);
}

using SharedHitMemoryDeathTest = SharedHitMemory;

TEST_F(SharedHitMemoryDeathTest, HitBitsThatHaveNoRoomAreAProgrammingError) {
    auto const make = [&](Chip::MemoryDescription const& memory) {
        return Belmo::make<Chip::SimulatedChip>(*profile, std::vector{memory, bits()}, std::nullopt);
    };
    auto memory = rows();
    memory.hits.bits = {3, 60};
    EXPECT_DEATH(make(memory), "bit \\+ HitBits::oddRow < bits.wordsPerRow\\(\\) \\* 32");
    memory = rows();
    memory.hits.firstRow = 9;
    EXPECT_DEATH(make(memory), "<= bits.rows\\(\\)");
    memory = rows();
    memory.hits.bits = {3};
    EXPECT_DEATH(make(memory), "hits.bits.size\\(\\) \\* hits.rowsPerBit >= description_.rows\\(\\)");
    memory = rows();
    memory.hits.memory = "none";
    EXPECT_THROW(make(memory), Belmo::RangeException);
}

}  // namespace
