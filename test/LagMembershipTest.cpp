#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Rillog/Rillog.h"

#include "FailureText.h"
#include "NerioSwitchTable/NerioTableLagMembership.h"
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
constexpr U32 none = strobe | 63;
constexpr char const* portRange =
    "NerioSwitch::ChipPortId::value < NerioSwitch::ChipPortId::min or > NerioSwitch::ChipPortId::null not "
    "allowed";

LagMembershipKey port(U32 number) {
    return LagMembershipKey(ChipPortId(number));
}

LagMembershipResult lag(U32 group, std::initializer_list<U32> ports) {
    LagMembershipResult result(group);
    for (U32 const number : ports)
        result.portIs(number, true);
    return result;
}

/** As a row says it: every port is there, true or false. */
LagMembershipResult readBack(std::initializer_list<U32> ports, U32 numPorts = 52) {
    LagMembershipResult result;
    for (U32 number = 0; number < numPorts; ++number)
        result.portIs(number, false);
    for (U32 const number : ports)
        result.portIs(number, true);
    return result;
}

class LagMembershipTest : public NerioTest::TableFixture<LagMembershipTable> {
protected:
    LagMembershipTest() : TableFixture([] { return lagMembershipTableFactory("lags"); }) {}

    std::vector<U32> chipRow(std::string const& prefix, U32 row) {
        auto const words = chip().indirectMemory(prefix + "/lagPorts").row(row);
        return {words.begin(), words.end()};
    }
};

using LagMembershipDeathTest = LagMembershipTest;

TEST_F(LagMembershipTest, ADefaultResultIsNoGroupAndNoPort) {
    EXPECT_EQ(LagMembershipKey().portId().value(), 53);
    LagMembershipResult const result;
    EXPECT_EQ(result.lagGroupId(), 63u);
    EXPECT_THAT(result.port(), IsEmpty());
    EXPECT_FALSE(result);
    EXPECT_TRUE(LagMembershipResult(5));
    EXPECT_THAT(LagMembershipResult(5).port(), IsEmpty());
    EXPECT_TRUE(LagMembershipResult().portIs(3, false)) << "a port that is present with false";
}

TEST_F(LagMembershipTest, APortWithFalseIsAnotherValueThanAnAbsentOne) {
    LagMembershipResult result(5);
    result.portIs(3, true).portIs(4, false);
    EXPECT_THAT(result.port(), SizeIs(2));
    EXPECT_TRUE(result.port(3));
    EXPECT_FALSE(result.port(4));
    EXPECT_FALSE(result.port(5));
    EXPECT_NE(result, lag(5, {3}));
    EXPECT_EQ(result.portDel(4), lag(5, {3}));
    EXPECT_NE(result, lag(6, {3}));
    result.portIs(3, false);
    EXPECT_FALSE(result.port(3)) << "overwritten";
    EXPECT_EQ(result.portDelAll(), LagMembershipResult(5));
}

TEST_F(LagMembershipTest, TheTextListsThePortsOfTheLagInTwoColumns) {
    EXPECT_EQ(LagMembershipResult(5).resultString(), "");
    EXPECT_EQ(lag(5, {12, 3}).portIs(4, false).resultString(), " 3 12 ");
    EXPECT_EQ(Sorn::text(lag(5, {12}).portIs(3, false)),
              "NerioSwitchTable::LagMembershipResult(port={3:false,12:true},lagGroupId=5)");
}

TEST_F(LagMembershipDeathTest, AResultCannotBeReadFromText) {
    auto const text = Sorn::text(LagMembershipResult());
    EXPECT_DEATH(
        {
            Sorn::CharRange range(text);
            LagMembershipResult const result(range);
        },
        R"("No String constructor for LagMembershipResult - has collection" == nullptr)");
}

TEST_F(LagMembershipTest, EachLayer2TableHasACopyOfItsPortsAndTheCpuPipelineOneOfAllPorts) {
    start();
    ASSERT_THAT(convertor().descriptors(), SizeIs(3));
    U32 const lastRows[] = {25, 51, 51};
    U32 const firstRows[] = {0, 26, 0};
    for (U32 id = 0; id < 3; ++id) {
        auto const& descriptor = *convertor().descriptor(id);
        EXPECT_EQ(descriptor.name(), "lags/demo/LagMembership/" + std::to_string(id));
        EXPECT_EQ(descriptor.firstIndex(), firstRows[id]);
        EXPECT_EQ(descriptor.lastIndex(), lastRows[id]);
    }
    EXPECT_FALSE(table().hwTablesDuplicate());
}

TEST_F(LagMembershipTest, TheMaskGoesToBothPlacesAndTheGroupToTheCpuPipelineAlone) {
    start();
    takeWrites();
    table().entryIs(port(30), lag(9, {0, 30, 31, 32, 51}));
    U32 const low = 1u << 0 | 1u << 30 | 1u << 31;
    U32 const high = 1u << 0 | 1u << 19;
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("ingress/processor_l2[1]/lag_mask_data0", low),
                                          Pair("ingress/processor_l2[1]/lag_mask_data1", high),
                                          Pair("ingress/processor_l2[1]/lag_ctl", 1u << 4),
                                          Pair("cpu_pipeline[0]/lag_cpu[0]/lag_mask_data0", low),
                                          Pair("cpu_pipeline[0]/lag_cpu[0]/lag_mask_data1", high),
                                          Pair("cpu_pipeline[0]/lag_cpu[0]/lag_ctl", strobe | 9)));
    EXPECT_THAT(chipRow("ingress/processor_l2[1]", 4), ElementsAre(low, high)) << "port 30 is the fifth";
    EXPECT_THAT(chipRow("cpu_pipeline[0]/lag_cpu[0]", 9), ElementsAre(low, high)) << "by its group";
}

TEST_F(LagMembershipTest, RegistersOfEarlierGenerationsAreInThePipeline) {
    profile().noMuxInRegName = false;
    profile().hasCpuPipeline = false;
    start();
    takeWrites();
    table().entryIs(port(3), lag(9, {3, 4}));
    auto const writes = takeWrites();
    ASSERT_THAT(writes, SizeIs(6));
    EXPECT_THAT(writes[0], Pair("pipeline[0]/processor/lag_mask_data0", 3u << 3));
    EXPECT_THAT(writes[2], Pair("pipeline[0]/processor/lag_ctl", 1u << 3));
    EXPECT_THAT(writes[5], Pair("cpu_pipeline[0]/lag_cpu[0]/lag_ctl", strobe | 9));
    EXPECT_THAT(chipRow("pipeline[0]/processor", 3), ElementsAre(3u << 3, 0));
}

TEST_F(LagMembershipTest, GoldenRows) {
    start();
    table().entryIs(port(25), lag(62, {0, 25, 51}));
    table().entryIs(port(26), lag(0, {31, 32}));
    EXPECT_EQ(shadowWords(25, 0), packed(3, {{0, 1, 1}, {25, 1, 1}, {51, 1, 1}, {89, 1, 1}}));
    EXPECT_EQ(shadowWords(25, cpuTable),
              packed(3, {{0, 1, 1}, {25, 1, 1}, {51, 1, 1}, {64, 6, 62}, {95, 1, 1}}));
    EXPECT_EQ(shadowWords(26, 1), packed(3, {{31, 1, 1}, {32, 1, 1}, {64, 1, 1}}));
    EXPECT_EQ(shadowWords(26, cpuTable), packed(3, {{31, 1, 1}, {32, 1, 1}, {95, 1, 1}}));
}

TEST_F(LagMembershipTest, AGroupAbove63GoesOutAsItIs) {
    start();
    table().entryIs(port(3), lag(0x1234, {3}));
    EXPECT_EQ(shadowWords(3, cpuTable)[2], strobe | 0x1234);
    table().entryIs(port(4), lag(0xC0000000, {4}));
    EXPECT_EQ(shadowWords(4, cpuTable)[2], 0xC0000000) << "it may reach the strobe";
}

TEST_F(LagMembershipTest, ThePortSelectOfAnIngressCopyHas32BitsAndNoStrobe) {
    profile().ingressPipesAre({{0, 0, 51}});
    profile().layouts[l2] = {1, 1, 1, 0, {0}, {0}};
    start();
    for (U32 const number : {30u, 31u, 32u, 51u}) {
        table().entryIs(port(number), lag(5, {number}));
        U64 const select = number < 32 ? U64{1} << number : 0;
        EXPECT_EQ(shadowWords(number, 0), packed(3, {{number, 1, 1}, {64, 32, select}})) << number;
    }
    EXPECT_THAT(chipRow("ingress/processor_l2[0]", 30), ElementsAre(1u << 30, 0));
    auto const groups = chip().indirectMemory("ingress/processor_l2[0]/lagGroups").row(30);
    EXPECT_THAT(std::vector<U32>(groups.begin(), groups.end()), ElementsAre(0, 0))
        << "the select bit of port 31 strobes groups, and selects none";
}

TEST_F(LagMembershipTest, ADeletionWritesWhatAColdStartWrites) {
    start();
    EXPECT_EQ(takeWriteCount(), 52u * 3 + 52u * 3);
    auto const ingress = shadowWords(3, 0);
    auto const cpu = shadowWords(3, cpuTable);
    EXPECT_THAT(ingress, ElementsAre(0, 0, 1u << 3));
    EXPECT_THAT(cpu, ElementsAre(0, 0, none));
    table().entryIs(port(3), lag(9, {3, 4}));
    takeWrites();
    EXPECT_EQ(table().entryDel(port(3)), lag(9, {3, 4}));
    EXPECT_EQ(takeWriteCount(), 6u);
    EXPECT_EQ(shadowWords(3, 0), ingress);
    EXPECT_EQ(shadowWords(3, cpuTable), cpu);
    EXPECT_THAT(chipRow("ingress/processor_l2[0]", 3), ElementsAre(0, 0));
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_THAT(table().entries(), IsEmpty());
}

TEST_F(LagMembershipTest, AnUnchangedMaskIsPublishedAndNotWritten) {
    start();
    table().entryIs(port(3), lag(9, {3}));
    takeWrites();
    U32 published = 0;
    auto const observation = table().publisher().observe("entry", [&](auto const&) { ++published; });
    table().entryIs(port(3), lag(9, {3}).portIs(4, false));
    EXPECT_EQ(published, 1u);
    EXPECT_EQ(takeWriteCount(), 0u);
    table().entryIs(port(3), lag(9, {3}).portIs(4, false));
    EXPECT_EQ(published, 1u);
}

TEST_F(LagMembershipTest, AllThreeWordsAreComparedAndFurtherWordsStay) {
    start();
    table().entryIs(port(3), lag(9, {3}));
    shadow(0).store(3, std::vector<U32>{1u << 3, 0, 0x55, 0x66});
    shadow(cpuTable).store(3, std::vector<U32>{1u << 3, 0, strobe | 9, 0x77});
    takeWrites();
    table().handleEntry(port(3));
    EXPECT_EQ(takeWriteCount(), 3u) << "another control word is a difference";
    EXPECT_THAT(shadowWords(3, 0), ElementsAre(1u << 3, 0, 1u << 3, 0x66));
    EXPECT_THAT(shadowWords(3, cpuTable), ElementsAre(1u << 3, 0, strobe | 9, 0x77));
    table().entryIs(port(3), lag(10, {3}));
    EXPECT_EQ(takeWriteCount(), 3u) << "the CPU pipeline's copy alone holds the group";
}

TEST_F(LagMembershipTest, AWarmStartOverAGroupMarksTheKeyAndPutsTheCpuTableInNoGroup) {
    start();
    table().entryIs(port(3), lag(9, {3, 30}));
    takeWrites();
    restart();
    EXPECT_TRUE(table().hwInconsistentEntry(port(3)));
    EXPECT_EQ(table().entry(port(3)), readBack({3, 30}));
    EXPECT_THAT(takeWrites(),
                ElementsAre(Pair("cpu_pipeline[0]/lag_cpu[0]/lag_mask_data0", 1u << 3 | 1u << 30),
                            Pair("cpu_pipeline[0]/lag_cpu[0]/lag_mask_data1", 0),
                            Pair("cpu_pipeline[0]/lag_cpu[0]/lag_ctl", none)));
    EXPECT_THAT(chipRow("cpu_pipeline[0]/lag_cpu[0]", 9), ElementsAre(1u << 3 | 1u << 30, 0))
        << "the group's own row stays";
    table().entryIs(port(3), lag(9, {3, 30}));
    EXPECT_THAT(takeWrites(), SizeIs(3));
    EXPECT_EQ(shadowWords(3, cpuTable)[2], strobe | 9);
}

TEST_F(LagMembershipTest, APortInNoGroupComesBackWithoutAMark) {
    start();
    table().entryIs(port(3), lag(63, {3, 30}));
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entry(port(3)), readBack({3, 30}));
    EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
}

TEST_F(LagMembershipTest, AGroupWhoseSixBitsAreThoseOfNoneComesBackWithoutAMarkAndIsRewritten) {
    start();
    table().entryIs(port(3), lag(64 + 63, {3, 30}));
    EXPECT_EQ(shadowWords(3, cpuTable)[2], strobe | 127);
    takeWrites();
    restart();
    EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
    EXPECT_EQ(table().entry(port(3)), readBack({3, 30}));
    EXPECT_THAT(takeWrites(), SizeIs(3));
    EXPECT_EQ(shadowWords(3, cpuTable)[2], none);
}

TEST_F(LagMembershipTest, AGroupWithoutPortsDoesNotComeBack) {
    start();
    table().entryIs(port(3), LagMembershipResult(9));
    EXPECT_EQ(shadowWords(3, cpuTable)[2], strobe | 9);
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_THAT(table().entries(), IsEmpty());
    EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
}

TEST_F(LagMembershipTest, AnIngressRowWithoutItsCpuRowIsAdoptedAndMarked) {
    start();
    shadow(0).store(3, std::vector<U32>{0, 2, 1u << 3});
    shadow(cpuTable).store(4, std::vector<U32>{0, 2, strobe | 9});
    takeWrites();
    restart();
    EXPECT_EQ(table().entry(port(3)), readBack({33}));
    EXPECT_TRUE(table().hwInconsistentEntry(port(3))) << "the CPU's table has no ports for it";
    EXPECT_EQ(shadowWords(3, cpuTable), packed(3, {{33, 1, 1}, {64, 6, 63}, {95, 1, 1}}));
    EXPECT_FALSE(table().entryHas(port(4))) << "what the CPU's table says is not adopted";
    EXPECT_TRUE(table().hwInconsistentEntry(port(4)));
    EXPECT_EQ(shadowWords(4, cpuTable)[1], 2u);
}

TEST_F(LagMembershipTest, RowsThatTheShadowLacksAreTracedAndWritten) {
    start();
    table().entryIs(port(3), lag(9, {3}));
    shadow(0).drop(3);
    shadow(1).corrupt(26);
    shadow(cpuTable).drop(51);
    takeWrites();
    NerioTest::TraceCapture const trace("NerioTableLagMembership", 9);
    restart();
    EXPECT_THAT(trace.lines(),
                ElementsAre("doCreateHwTables tableState: 1", "table 0 index 3 does not exist.",
                            "table 1 index 26 does not exist.", "table 2 index 51 does not exist."));
    EXPECT_THAT(takeWrites(), SizeIs(9));
    EXPECT_THAT(shadowWords(3, 0), ElementsAre(0, 0, 1u << 3));
    EXPECT_TRUE(table().hwInconsistentEntry(port(3))) << "the CPU's table still has its ports";
}

TEST_F(LagMembershipTest, EachChangeOfAStartedTableIsTracedAlsoIntoTheRing) {
    NerioTest::TraceCapture const trace("NerioTableLagMembership", 9);
    Rillog::ring().levelIs(9);
    Rillog::ring().clear();
    make();
    table().entryIs(port(3), lag(9, {3, 12}));
    EXPECT_THAT(trace.lines(), IsEmpty()) << "not before the start";
    bringUp(StartMode::cold);
    table().entryIs(port(4), lag(9, {3, 4, 12}));
    table().entryDel(port(4));
    auto const records = Rillog::ring().records();
    Rillog::ring().levelIs(0);
    auto const* const isSet = "Set hwTableEntry key: 4 ports:  3  4 12 ";
    auto const* const isDeleted = "Set hwTableEntry key: 4 ports: ";
    EXPECT_THAT(trace.lines(), ElementsAre("doCreateHwTables tableState: 0", isSet, isDeleted));
    ASSERT_THAT(records, SizeIs(2));
    EXPECT_EQ(records[0].text, isSet);
    EXPECT_EQ(records[1].text, isDeleted);
}

TEST_F(LagMembershipTest, AChipOfMoreThan54PortsCannotBeDriven) {
    profile().numPorts = 55;
    for (auto const mode : {StartMode::cold, StartMode::warm})
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { start(mode); }), portRange);
    make();
    table().entryIs(port(0), lag(5, {0}));
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { bringUp(StartMode::cold); }), portRange);
    EXPECT_EQ(chipRegister("ingress/processor_l2[0]/lag_mask_data0"), 0u)
        << "the row of port 0 was not written";
}

TEST_F(LagMembershipTest, AChipOf54PortsTakesTheNullPortForItsLast) {
    profile().numPorts = 54;
    start();
    EXPECT_EQ(convertor().descriptor(cpuTable)->lastIndex(), 53u);
    table().entryIs(port(3), lag(5, {53}));
    EXPECT_EQ(shadowWords(3, 0), packed(3, {{53, 1, 1}, {67, 1, 1}}));
}

TEST_F(LagMembershipTest, APortWithoutARowIsRefusedBeforeAnythingIsStored) {
    profile().numPorts = 16;
    profile().ingressPipesAre({{0, 0, 15}, {1, 16, 31}});
    start();
    takeWrites();
    EXPECT_THROW(table().entryIs(port(16), lag(5, {1})), Belmo::RangeException);
    EXPECT_FALSE(table().entryHas(port(16)));
    table().entryIs(port(15), lag(5, {1, 16}));
    EXPECT_EQ(shadowWords(15, 0), packed(3, {{1, 1, 1}, {79, 1, 1}})) << "a mask has the chip's ports";
    EXPECT_EQ(takeWriteCount(), 6u);
}

TEST_F(LagMembershipTest, NothingIsWrittenWhileTheFirstDescriptorIsNotInitialized) {
    start();
    takeWrites();
    convertor().descriptor(0)->initializedIs(false);
    table().entryIs(port(30), lag(9, {30}));
    EXPECT_EQ(takeWriteCount(), 0u);
    convertor().descriptor(0)->initializedIs(true);
    table().handleEntry(port(30));
    EXPECT_EQ(takeWriteCount(), 6u);
}

}  // namespace
