// LAG groups of ports, and with them what the tables of a LAG per port share.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FailureText.h"
#include "NerioSwitchTable/NerioTableLagGroup.h"
#include "PackedWords.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::ChipPortId;
using NerioTest::packed;
using NerioTest::StartMode;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr auto l2 = NerioSwitch::TableLayoutEnum::tableLayoutL2;
constexpr U32 cpuTable = 2;
constexpr U32 strobe = 0x80000000;
constexpr char const* cpuControl = "cpu_pipeline[0]/lag_cpu[0]/lag_ctl";
constexpr char const* portRange =
    "NerioSwitch::ChipPortId::value < NerioSwitch::ChipPortId::min or > NerioSwitch::ChipPortId::null not "
    "allowed";

LagGroupKey port(U32 number) {
    return LagGroupKey(ChipPortId(number));
}

class LagGroupTest : public NerioTest::TableFixture<LagGroupTable> {
protected:
    LagGroupTest() : TableFixture([] { return lagGroupTableFactory("lags"); }) {}

    void groupIs(U32 number, U32 group) { table().entryIs(port(number), LagGroupResult(group)); }
    /** One table of all ports, as chips of few ports have it. */
    void oneTableOf(U16 ports) {
        profile().numPorts = ports;
        profile().ingressPipesAre({{0, 0, static_cast<U16>(ports - 1)}});
        profile().layouts[l2] = {1, 1, 1, 0, {0}, {0}};
    }
    std::vector<U32> chipRow(U32 layer2Table, U32 row) {
        auto const name = "ingress/processor_l2[" + std::to_string(layer2Table) + "]/lagGroups";
        auto const words = chip().indirectMemory(name).row(row);
        return {words.begin(), words.end()};
    }
    void storeRow(U32 number, NerioSwitchApi::HwTableId id, std::vector<U32> const& words) {
        shadow(id).store(number, words);
    }
};

TEST_F(LagGroupTest, ADefaultKeyHoldsTheNullPortAndADefaultResultGroup0) {
    EXPECT_EQ(LagGroupKey().portId().value(), 53);
    EXPECT_EQ(LagGroupResult().lagGroupId(), 0u);
    make();
    EXPECT_FALSE(table().hwTablesDuplicate()) << "an entry goes to chosen copies only";
    EXPECT_EQ(table().entry(port(3)).lagGroupId(), 0u) << "an absent key";
}

TEST_F(LagGroupTest, TheTextOfAResultIsAHexadecimalNumber) {
    EXPECT_EQ(LagGroupResult().resultString(), "0x00");
    EXPECT_EQ(LagGroupResult(5).resultString(), "0x05");
    EXPECT_EQ(LagGroupResult(63).resultString(), "0x3f");
    EXPECT_EQ(LagGroupResult(0xABC).resultString(), "0xabc");
}

TEST_F(LagGroupTest, AResultReadsFromTheBareNumberAndFromItsTextForm) {
    auto const read = [](std::string const& text) {
        Sorn::CharRange range(text);
        LagGroupResult const result(range);
        range.expectEnd();
        return result.lagGroupId();
    };
    EXPECT_EQ(read("17"), 17u);
    EXPECT_EQ(read(LagGroupResult(62).resultString()), 62u);
    EXPECT_EQ(Sorn::text(LagGroupResult(17)), "NerioSwitchTable::LagGroupResult(lagGroupId=17)");
    EXPECT_EQ(read(Sorn::text(LagGroupResult(17))), 17u);
    EXPECT_THROW(read("NerioSwitchTable::LagGroupResult(lagGroupId=17"), Belmo::DeserializationException);
    EXPECT_THAT(failureOf<Belmo::DeserializationException>([&] { read("4294967296"); }),
                testing::StartsWith("NerioSwitchTable::LagGroupResult::lagGroupId: "));
}

TEST_F(LagGroupTest, EachLayer2TableHasACopyOfItsPortsAndTheCpuPipelineOneOfAllPorts) {
    start();
    ASSERT_THAT(convertor().descriptors(), SizeIs(3));
    U32 const lastRows[] = {25, 51, 51};
    U32 const firstRows[] = {0, 26, 0};
    for (U32 id = 0; id < 3; ++id) {
        auto const& descriptor = *convertor().descriptor(id);
        EXPECT_EQ(descriptor.name(), "lags/demo/LagGroup/" + std::to_string(id));
        EXPECT_EQ(descriptor.firstIndex(), firstRows[id]);
        EXPECT_EQ(descriptor.lastIndex(), lastRows[id]);
    }
}

TEST_F(LagGroupTest, ACopyServesTheHullOfItsPipesPorts) {
    profile().ingressPipesAre({{0, 0, 9}, {1, 10, 19}, {2, 20, 51}});
    profile().layouts[l2] = {2, 3, 2, 0, {0, 1, 0}, {0, 1, 0}};
    start();
    EXPECT_EQ(convertor().descriptor(0)->lastIndex(), 51u);
    EXPECT_EQ(convertor().descriptor(1)->firstIndex(), 10u);
    takeWrites();
    groupIs(15, 7);
    EXPECT_THAT(takeWrites(),
                ElementsAre(Pair("ingress/processor_l2[1]/lag_group_data0", 7),
                            Pair("ingress/processor_l2[1]/lag_ctl", strobe | 1u << 5), Pair(cpuControl, 7)))
        << "the copy of the port's pipe, although the other one has a row for it";
    EXPECT_THAT(shadowWords(15, 0), ElementsAre(63, strobe));
}

TEST_F(LagGroupTest, AnEntryGoesToTheCopyOfItsPortAndToTheCpuPipeline) {
    start();
    takeWrites();
    groupIs(30, 9);
    EXPECT_THAT(takeWrites(),
                ElementsAre(Pair("ingress/processor_l2[1]/lag_group_data0", 9),
                            Pair("ingress/processor_l2[1]/lag_ctl", strobe | 1u << 4), Pair(cpuControl, 9)));
    EXPECT_THAT(chipRow(1, 4), ElementsAre(9, 1));
    EXPECT_THAT(chipRow(0, 4), ElementsAre(0, 0));
}

TEST_F(LagGroupTest, RegistersOfEarlierGenerationsAreInThePipeline) {
    profile().noMuxInRegName = false;
    profile().hasCpuPipeline = false;
    start();
    takeWrites();
    groupIs(3, 9);
    EXPECT_THAT(takeWrites(),
                ElementsAre(Pair("pipeline[0]/processor/lag_group_data0", 9),
                            Pair("pipeline[0]/processor/lag_ctl", strobe | 1u << 3), Pair(cpuControl, 9)))
        << "a chip without a CPU pipeline has its table all the same";
    EXPECT_EQ(chip().indirectMemory("pipeline[0]/processor/lagGroups").row(3)[0], 9u);
}

TEST_F(LagGroupTest, GoldenRows) {
    start();
    groupIs(0, 1);
    groupIs(25, 62);
    groupIs(26, 0xDEADBEEF);
    groupIs(51, 40);
    EXPECT_EQ(shadowWords(0, 0), packed(2, {{0, 32, 1}, {32, 1, 1}, {63, 1, 1}}));
    EXPECT_EQ(shadowWords(25, 0), packed(2, {{0, 32, 62}, {57, 1, 1}, {63, 1, 1}}));
    EXPECT_EQ(shadowWords(26, 1), packed(2, {{0, 32, 0xDEADBEEF}, {32, 1, 1}, {63, 1, 1}}));
    EXPECT_EQ(shadowWords(51, 1), packed(2, {{0, 32, 40}, {57, 1, 1}, {63, 1, 1}}));
    EXPECT_EQ(shadowWords(51, cpuTable)[0], 40u);
    EXPECT_EQ(shadowWords(26, cpuTable)[0], 0xDEADBEEF) << "the group goes out whole";
}

TEST_F(LagGroupTest, AColdStartWritesNoGroupTwiceAndTheStrobeSelectsNoPort) {
    start();
    auto const writes = takeWrites();
    ASSERT_THAT(writes, SizeIs(52u * 3 + 52u * 2));
    for (U32 i = 0; i < 3 * 26; i += 3) {
        EXPECT_THAT(writes[i], Pair("ingress/processor_l2[0]/lag_group_data0", 63));
        EXPECT_THAT(writes[i + 1], Pair("ingress/processor_l2[0]/lag_group_data0", 63));
        EXPECT_THAT(writes[i + 2], Pair("ingress/processor_l2[0]/lag_ctl", strobe));
    }
    for (U32 i = 52 * 3; i < writes.size(); ++i)
        EXPECT_THAT(writes[i], Pair(cpuControl, 63)) << "the second word has no register there";
    EXPECT_THAT(shadowWords(17, 0), ElementsAre(63, strobe));
    EXPECT_THAT(shadowWords(17, cpuTable), ElementsAre(63, strobe));
    EXPECT_THAT(chipRow(0, 17), ElementsAre(0, 0)) << "nothing was stored";
}

TEST_F(LagGroupTest, AResetLeavesTheChipsRowOfAPortInItsGroup) {
    start();
    groupIs(3, 9);
    restart(StartMode::cold);
    EXPECT_THAT(shadowWords(3, 0), ElementsAre(63, strobe));
    EXPECT_THAT(chipRow(0, 3), ElementsAre(9, 1)) << "the strobe of a default row selects no port";
}

TEST_F(LagGroupTest, APort31OrMoreAboveTheFirstHasNoSelectBit) {
    oneTableOf(52);
    start();
    for (U32 const number : {30u, 31u, 32u, 51u})
        groupIs(number, 5);
    EXPECT_EQ(shadowWords(30, 0), packed(2, {{0, 32, 5}, {62, 1, 1}, {63, 1, 1}}));
    for (U32 const number : {31u, 32u, 51u})
        EXPECT_EQ(shadowWords(number, 0), packed(2, {{0, 32, 5}, {63, 1, 1}})) << number;
    EXPECT_THAT(chipRow(0, 30), ElementsAre(5, 1));
    EXPECT_EQ(shadowWords(51, 1)[0], 5u) << "the CPU pipeline's table needs none";
}

TEST_F(LagGroupTest, ChipsOf16And31And32PortsHaveARowForEach) {
    for (U16 const ports : {U16{16}, U16{31}, U16{32}}) {
        auto const small = NerioSwitch::profilePreset("default");
        small->numPorts = ports;
        small->ingressPipesAre({{0, 0, static_cast<U16>(ports - 1)}});
        small->layouts[l2] = {1, 1, 1, 0, {0}, {0}};
        auto const itsChip = Chip::simulatedChip(*small);
        NerioSwitchApi::TableFramework framework(small, itsChip, NerioSwitchApi::memoryShadowStore());
        auto const lags = lagGroupTableFactory("lags");
        framework.tableIs(lags, StartMode::cold);
        lags->entryIs(port(ports - 1u), LagGroupResult(8));
        auto const row = lags->profileConvertorPtr()->hwTable(0)->storedEntry(ports - 1u);
        EXPECT_EQ(row->data(1), strobe | (ports < 32 ? 1u << (ports - 1) : 0)) << ports;
        EXPECT_THROW(lags->entryIs(port(ports), LagGroupResult(8)), Belmo::RangeException);
    }
}

TEST_F(LagGroupTest, ADeletionLeavesGroup0AndARowThatWasNeverSetHolds63) {
    start();
    groupIs(3, 9);
    takeWrites();
    EXPECT_EQ(table().entryDel(port(3)), LagGroupResult(9));
    EXPECT_THAT(takeWrites(),
                ElementsAre(Pair("ingress/processor_l2[0]/lag_group_data0", 0),
                            Pair("ingress/processor_l2[0]/lag_ctl", strobe | 1u << 3), Pair(cpuControl, 0)));
    EXPECT_EQ(shadowWords(3, 0)[0], 0u);
    EXPECT_EQ(shadowWords(4, 0)[0], 63u);
}

TEST_F(LagGroupTest, ADeletedPortComesBackInGroup0) {
    start();
    groupIs(3, 9);
    table().entryDel(port(3));
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    ASSERT_TRUE(table().entryHas(port(3)));
    EXPECT_EQ(table().entry(port(3)).lagGroupId(), 0u);
    EXPECT_THAT(table().entries(), SizeIs(1));
    EXPECT_FALSE(table().hwInconsistentEntry(port(3)));
}

TEST_F(LagGroupTest, GroupsSurviveARestartWithoutAWrite) {
    start();
    groupIs(3, 9);
    groupIs(51, 0);
    groupIs(26, 62);
    holdsAcrossRestart([&] {
        EXPECT_THAT(table().entries(), SizeIs(3));
        EXPECT_EQ(table().entry(port(3)).lagGroupId(), 9u);
        EXPECT_TRUE(table().entryHas(port(51)));
        EXPECT_EQ(table().entry(port(26)).lagGroupId(), 62u);
        EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
    });
}

TEST_F(LagGroupTest, AnotherGroupGoesToBothPlacesAndTheSameGroupToNeither) {
    start();
    groupIs(3, 9);
    takeWrites();
    groupIs(3, 10);
    EXPECT_EQ(takeWriteCount(), 3u);
    table().handleEntry(port(3));
    EXPECT_EQ(takeWriteCount(), 0u);
    storeRow(3, cpuTable, {8});
    table().handleEntry(port(3));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair(cpuControl, 10))) << "each place by its own shadow";
}

TEST_F(LagGroupTest, OnlyTheGroupIsComparedAndFurtherWordsStay) {
    start();
    storeRow(3, 0, {9, 0x55, 0x66});
    takeWrites();
    groupIs(3, 9);
    EXPECT_THAT(takeWrites(), ElementsAre(Pair(cpuControl, 9))) << "another control word is no difference";
    groupIs(3, 10);
    EXPECT_THAT(shadowWords(3, 0), ElementsAre(10, strobe | 1u << 3, 0x66));
}

TEST_F(LagGroupTest, SixBitsOfARowAreReadBack) {
    start();
    storeRow(3, 0, {64, strobe | 1u << 3});
    storeRow(4, 0, {127, strobe | 1u << 4});
    storeRow(5, 0, {0x12345605, strobe | 1u << 5});
    restart();
    ASSERT_TRUE(table().entryHas(port(3)));
    EXPECT_EQ(table().entry(port(3)).lagGroupId(), 0u);
    EXPECT_FALSE(table().entryHas(port(4))) << "its low bits are no group";
    EXPECT_EQ(table().entry(port(5)).lagGroupId(), 5u);
}

TEST_F(LagGroupTest, SixBitsOfTheCpuTableAreHeldAgainstTheEntryAndTheWholeRowIsRewritten) {
    start();
    groupIs(3, 9);
    groupIs(4, 9);
    storeRow(3, cpuTable, {64 + 9, strobe});
    storeRow(4, cpuTable, {64 + 63, strobe});  // no group
    storeRow(5, cpuTable, {64 + 63, strobe});  // nor here, where none is wanted
    takeWrites();
    restart();
    EXPECT_FALSE(table().hwInconsistentEntry(port(3)));
    EXPECT_TRUE(table().hwInconsistentEntry(port(4)));
    EXPECT_FALSE(table().hwInconsistentEntry(port(5)));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair(cpuControl, 9), Pair(cpuControl, 9)));
}

TEST_F(LagGroupTest, ACpuTableThatDisagreesMarksTheKeyAndIsRewrittenForEntriesAlone) {
    start();
    for (U32 const number : {3u, 4u, 5u})
        groupIs(number, 9);
    storeRow(3, cpuTable, {63, strobe});  // lacks the group
    storeRow(4, cpuTable, {8, strobe});   // holds another one
    storeRow(6, cpuTable, {8, strobe});   // holds one of a port without a group
    takeWrites();
    restart();
    for (U32 const number : {3u, 4u, 6u})
        EXPECT_TRUE(table().hwInconsistentEntry(port(number))) << number;
    EXPECT_THAT(table().hwInconsistentEntries(), SizeIs(3));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair(cpuControl, 9), Pair(cpuControl, 9)));
    EXPECT_FALSE(table().entryHas(port(6))) << "what the CPU's table says is not adopted";
    EXPECT_EQ(shadowWords(6, cpuTable)[0], 8u) << "nor repaired, without an entry";
}

TEST_F(LagGroupTest, AnEntryOfGroup63BeforeAWarmStartIsMarked) {
    start();
    make();
    groupIs(3, 63);
    bringUp(StartMode::warm);
    EXPECT_TRUE(table().hwInconsistentEntry(port(3)));
}

TEST_F(LagGroupTest, RowsThatTheShadowLacksAreTracedAndWritten) {
    start();
    groupIs(3, 9);
    shadow(0).drop(3);
    shadow(1).corrupt(26);
    shadow(cpuTable).drop(51);
    takeWrites();
    NerioTest::TraceCapture const trace("NerioTableLagGroup", 9);
    restart();
    EXPECT_THAT(trace.lines(),
                ElementsAre("table 0 index 3 does not exist.", "table 1 index 26 does not exist.",
                            "table 2 index 51 does not exist."));
    EXPECT_EQ(takeWriteCount(), 3u + 3u + 2u);
    EXPECT_FALSE(table().entryHas(port(3)));
    EXPECT_TRUE(table().hwInconsistentEntry(port(3))) << "the CPU's table still has its group";
}

TEST_F(LagGroupTest, ARowAbove53EndsTheStart) {
    profile().numPorts = 60;
    for (auto const mode : {StartMode::cold, StartMode::warm}) {
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { start(mode); }), portRange);
        EXPECT_FALSE(table().initialized());
    }
    EXPECT_EQ(chipRegister(cpuControl), 63u) << "rows up to 53 were reached";
}

TEST_F(LagGroupTest, APortThatNoCopyServesIsRefusedBeforeAnythingIsStored) {
    profile().ingressPipesAre({{0, 0, 25}, {1, 26, 40}});
    start();
    takeWrites();
    for (U32 const number : {45u, 52u, 53u}) {
        EXPECT_THROW(groupIs(number, 5), Belmo::RangeException) << number;
        EXPECT_FALSE(table().entryHas(port(number)));
    }
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(LagGroupTest, AChipWithoutLayer2TablesHasTheCpuTableAlone) {
    profile().layouts.erase(l2);
    start();
    EXPECT_THAT(convertor().descriptors(), SizeIs(1));
    takeWrites();
    groupIs(30, 9);
    EXPECT_THAT(takeWrites(), ElementsAre(Pair(cpuControl, 9)));
    holdsAcrossRestart([&] { EXPECT_EQ(shadowWords(30)[0], 9u); });
}

TEST_F(LagGroupTest, ACopyThatNoPipeIsMappedToHasNoRows) {
    profile().layouts[l2].tables = 3;
    start();
    EXPECT_THAT(convertor().descriptors(), SizeIs(4));
    EXPECT_GT(convertor().descriptor(2)->firstIndex(), convertor().descriptor(2)->lastIndex());
    groupIs(30, 9);
    EXPECT_EQ(shadowWords(30, 3)[0], 9u);
}

TEST_F(LagGroupTest, NothingIsWrittenWhileTheFirstDescriptorIsNotInitialized) {
    start();
    takeWrites();
    convertor().descriptor(0)->initializedIs(false);
    groupIs(30, 9);
    EXPECT_EQ(takeWriteCount(), 0u);
    convertor().descriptor(0)->initializedIs(true);
    convertor().descriptor(1)->initializedIs(false);
    table().handleEntry(port(30));
    EXPECT_EQ(takeWriteCount(), 3u);
}

TEST_F(LagGroupTest, GroupsBeforeTheStartAreWrittenByTheStart) {
    make();
    groupIs(30, 9);
    EXPECT_EQ(takeWriteCount(), 0u);
    bringUp(StartMode::cold);
    EXPECT_EQ(takeWriteCount(), 51u * 5 + 3u) << "the walk over the CPU's table finds it done";
    EXPECT_THAT(chipRow(1, 4), ElementsAre(9, 1));
}

}  // namespace
