// L3 LAGs, and with them what the direct shape does for every family.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FailureText.h"
#include "NerioSwitchTable/NerioTableL3Lag.h"
#include "PackedWords.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"
#include "chip/L3LagLookup.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::IngressPortMask;
using NerioSwitch::L3LagIndex;
using NerioTest::packed;
using NerioTest::StartMode;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr char const* rangeText =
    "NerioSwitch::L3LagIndex::value < NerioSwitch::L3LagIndex::min or > NerioSwitch::L3LagIndex::mcastSnat "
    "not allowed";
constexpr U32 lastRow = 55;

L3LagResult ports(U64 mask, bool cpuPriority = false, bool natEnabled = false) {
    return L3LagResult().portMaskIs(mask).cpuPriorityIs(cpuPriority).natEnabledIs(natEnabled);
}

/** The row's control word: its number, the write strobe at 17, and table 9 at 18. */
U64 control(U32 row) {
    return row | 1u << 17 | 9u << 18;
}

class L3LagTest : public NerioTest::TableFixture<L3LagTable> {
protected:
    L3LagTest() : TableFixture([] { return l3LagTableFactory("lags"); }) {}

    L3LagConvertor& lagConvertor() { return static_cast<L3LagConvertor&>(convertor()); }
    std::vector<U32> chipRow(U32 processor, U32 row) {
        auto const name = "ingress/processor_l3[" + std::to_string(processor) + "]/l3Lag";
        auto const words = chip().indirectMemory(name).row(row);
        return {words.begin(), words.end()};
    }
    Belmo::Ptr<DirectBaseEntry const> item(L3LagIndex key, L3LagResult const& result, bool valid = true) {
        auto const entry = L3LagEntryIs(key);
        entry->resultIs(result);
        entry->validIs(valid);
        return entry;
    }
    /** Attributes that the table publishes from here on, each with its key. */
    std::vector<std::pair<std::string, U32>>& published() {
        observation_ = table().publisher().observeAll([this](Belmo::Change const& change) {
            published_.emplace_back(change.attribute, change.key.as<L3LagIndex>()->value());
        });
        return published_;
    }

private:
    std::vector<std::pair<std::string, U32>> published_;
    Belmo::Subscription observation_;
};

TEST_F(L3LagTest, TheIndexHoldsSixBits) {
    EXPECT_EQ(L3LagIndex().value(), 0);
    EXPECT_EQ(L3LagIndex(63).value(), L3LagIndex::mcastSnat);
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { L3LagIndex(64); }), rangeText);
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { L3LagIndex(-1); }), rangeText);
}

TEST_F(L3LagTest, ResultStringNamesOnlyTheFlagsThatAreSet) {
    EXPECT_EQ(L3LagResult().resultString(), "portMask:0x000000000000");
    EXPECT_EQ(ports(0xF).resultString(), "portMask:0x00000000000f");
    EXPECT_EQ(ports(3, true).resultString(), "portMask:0x000000000003, cpuPriority");
    EXPECT_EQ(ports(3, false, true).resultString(), "portMask:0x000000000003, natEnabled");
    EXPECT_EQ(ports(IngressPortMask::cpu, true, true).resultString(),
              "portMask:0x10000000000000, cpuPriority, natEnabled");
}

TEST_F(L3LagTest, AnItemShowsKeyAndResult) {
    auto const entry = L3LagEntryIs(7);
    EXPECT_FALSE(entry->valid());
    EXPECT_TRUE(entry->lastHit().isNever());
    EXPECT_EQ(entry->result(), L3LagResult());
    EXPECT_EQ(entry->toStrep(), "L3LagEntry( 7 portMask:0x000000000000 )");
    EXPECT_EQ(strepOf(entry), entry->toStrep());
    EXPECT_EQ(strepOf(nullptr), "NULL");
}

TEST_F(L3LagTest, TheTablesOfAllProcessorsAreNamedAndHave56Rows) {
    start();
    ASSERT_THAT(convertor().hwTables(), SizeIs(2));
    EXPECT_EQ(convertor().descriptor(0)->name(), "lags/demo/L3Lag/0");
    EXPECT_EQ(convertor().descriptor(1)->name(), "lags/demo/L3Lag/1");
    EXPECT_EQ(convertor().descriptor(1)->firstIndex(), 0u);
    EXPECT_EQ(convertor().descriptor(1)->lastIndex(), lastRow);
    EXPECT_EQ(takeWriteCount(), 2u * 56 * 3);
    EXPECT_TRUE(table().hwTablesDuplicate());
    EXPECT_FALSE(table().hitBitsSupported());
    EXPECT_FALSE(table().statusSupported());
    EXPECT_EQ(convertor().readStrobeBit(), 16);
    EXPECT_EQ(convertor().writeStrobeBit(), 17);
    EXPECT_EQ(convertor().hwStaticWord(2), 0xFFFFFFFF);
}

TEST_F(L3LagTest, TheStaticWordIsDeclaredAgainWhenTheTablesAreInitialized) {
    start();
    convertor().hwStaticWordDel(2);
    EXPECT_EQ(convertor().hwStaticWord(2), 0u);
    convertor().handleInitialized();
    EXPECT_EQ(convertor().hwStaticWord(2), 0xFFFFFFFF);
}

TEST_F(L3LagTest, GoldenRowsOfAChipOf52Ports) {
    start();
    EXPECT_EQ(shadowWords(55), packed(3, {{64, 32, control(55)}}));
    table().entryIs(0, ports(0b101));
    EXPECT_EQ(shadowWords(0), packed(3, {{0, 53, 0b101}, {64, 32, control(0)}}));
    table().entryIs(1, ports(U64{1} << 51));
    EXPECT_EQ(shadowWords(1), packed(3, {{51, 1, 1}, {54, 1, 1}, {64, 32, control(1)}}));
    table().entryIs(2, ports(IngressPortMask::cpu, true));
    EXPECT_EQ(shadowWords(2), packed(3, {{52, 1, 1}, {53, 1, 1}, {64, 32, control(2)}}));
    table().entryIs(55, ports(1, true, true));
    auto const last = packed(3, {{0, 1, 1}, {53, 1, 1}, {54, 1, 1}, {55, 1, 1}, {64, 32, control(55)}});
    EXPECT_EQ(shadowWords(55), last);
    EXPECT_EQ(shadowWords(55, 1), last) << "the copy of the other processor";
    EXPECT_THAT(chipRow(1, 55), ElementsAre(last[0], last[1]));
}

class L3LagOnChip : public L3LagTest, public testing::WithParamInterface<U16> {};

TEST_P(L3LagOnChip, TheChipFindsThePortsOfEachLagAndPassesWrongParityOver) {
    U16 const numPorts = GetParam();
    profile().numPorts = numPorts;
    start();
    Chip::L3LagLookup const lookup(chip(), profile(), 1);
    U64 const allPorts = (U64{1} << numPorts) - 1;
    for (U32 lag = 0; lag <= lastRow; ++lag) {
        U64 const mask = (0x9E3779B97F4A7C15u * (lag + 1)) & allPorts;
        bool const cpu = lag % 3 == 0;
        table().entryIs(lag, ports(mask | (cpu ? IngressPortMask::cpu : 0), lag % 2 == 0, lag % 5 == 0));
        U64 const found = mask | (cpu ? U64{1} << numPorts : 0);
        EXPECT_EQ(lookup.find(lag), (Chip::L3LagHit{found, lag % 2 == 0, lag % 5 == 0}));
    }
    EXPECT_EQ(lookup.find(lastRow + 1), std::nullopt);
    chip().write(chip().address("ingress/processor_l3[1]/hash_data0"), 1);
    chip().write(chip().address("ingress/processor_l3[1]/hash_data1"), 0);
    chip().write(chip().address("ingress/processor_l3[1]/hash_ctl"), static_cast<U32>(control(7)));
    EXPECT_EQ(lookup.find(7), std::nullopt);
    EXPECT_THROW(Chip::L3LagLookup(chip(), profile(), 2), Belmo::RangeException);
}

INSTANTIATE_TEST_SUITE_P(Ports, L3LagOnChip, testing::Values(16, 31, 52));

TEST_F(L3LagTest, FieldsFollowTheNumberOfPorts) {
    profile().numPorts = 16;
    start();
    table().entryIs(3, ports(IngressPortMask::cpu | 0x8001, true, true));
    EXPECT_EQ(
        shadowWords(3),
        packed(
            3,
            {{0, 1, 1}, {15, 1, 1}, {16, 1, 1}, {17, 1, 1}, {18, 1, 1}, {19, 1, 1}, {64, 32, control(3)}}));
    holdsAcrossRestart(
        [&] { EXPECT_EQ(table().entry(3), ports(IngressPortMask::cpu | 0x8001, true, true)); });
}

TEST_F(L3LagTest, ARowIsWrittenThroughDataRegistersAndControlWordOfEachProcessor) {
    start();
    takeWrites();
    table().entryIs(5, ports(3));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("ingress/processor_l3[0]/hash_data0", 3),
                                          Pair("ingress/processor_l3[0]/hash_data1", 0),
                                          Pair("ingress/processor_l3[0]/hash_ctl", control(5)),
                                          Pair("ingress/processor_l3[1]/hash_data0", 3),
                                          Pair("ingress/processor_l3[1]/hash_data1", 0),
                                          Pair("ingress/processor_l3[1]/hash_ctl", control(5))));
}

TEST_F(L3LagTest, LayingOutLeavesForeignBitsOfTheControlWordAlone) {
    start();
    std::array<U32, 8> words;
    words.fill(0xFFFFFFFF);
    lagConvertor().setStaticBuffer(5, reinterpret_cast<U8*>(words.data()));
    EXPECT_EQ(words[1], 0xFFFFFFFF);
    EXPECT_EQ(
        words[2],
        packed(1,
               {{0, 6, 5}, {6, 2, 3}, {8, 8, 0xFF}, {16, 1, 1}, {17, 1, 1}, {18, 4, 9}, {22, 10, 0x3FF}})[0]);
    EXPECT_EQ(words[3], 0xFFFFFFFF);
}

TEST_F(L3LagTest, IndexAndKeyAreInverseAtBothEnds) {
    start();
    for (U32 const row : {0u, lastRow})
        EXPECT_EQ(lagConvertor().hwIndexFromKey(lagConvertor().keyFromHwIndex(row)), row);
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { lagConvertor().nullDirectEntry(64); }), rangeText);
    auto const empty = lagConvertor().nullDirectEntry(55);
    EXPECT_FALSE(empty->valid());
    EXPECT_EQ(empty->toStrep(), "L3LagEntry( 55 portMask:0x000000000000 )");
    EXPECT_EQ(lagConvertor().capacityIndexFromEntry(empty), 0u);
}

TEST_F(L3LagTest, Row55IsThereAndKey56IsRefusedBeforeAnythingIsStored) {
    start();
    table().entryIs(55, ports(1));
    EXPECT_THAT(chipRow(0, 55), ElementsAre(1, 1u << 22));
    takeWrites();
    auto const& changes = published();
    for (U32 const index : {56u, 63u}) {
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { table().entryIs(index, ports(1)); }),
                  "NerioSwitchApi::HwIndex::value < NerioSwitchApi::HwTableDescriptor::firstIndex or > "
                  "NerioSwitchApi::HwTableDescriptor::lastIndex not allowed");
        EXPECT_FALSE(table().entryHas(index));
        EXPECT_EQ(table().entryDel(index), L3LagResult());
    }
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_THAT(changes, IsEmpty());
}

TEST_F(L3LagTest, AKeyWithoutARowThatWasWantedBeforeTheStartIsKeptAndCanBeDeleted) {
    make();
    table().entryIs(56, ports(1));
    bringUp(StartMode::cold);
    EXPECT_TRUE(table().entryHas(56));
    takeWrites();
    EXPECT_EQ(table().entryDel(56), ports(1));
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(L3LagTest, EntriesSurviveARestartWithoutAWrite) {
    start();
    table().entryIs(3, ports(0xFFFFFFFFFFFFF, true, true));
    table().entryIs(40, ports(IngressPortMask::cpu));
    table().entryIs(41, ports(0, true));
    table().entryIs(42, ports(0, false, true));
    holdsAcrossRestart([&] {
        EXPECT_THAT(table().entries(), SizeIs(4));
        EXPECT_EQ(table().entry(3), ports(0xFFFFFFFFFFFFF, true, true));
        EXPECT_EQ(table().entry(40), ports(IngressPortMask::cpu));
        EXPECT_EQ(table().entry(41), ports(0, true));
        EXPECT_EQ(table().entry(42), ports(0, false, true));
        EXPECT_TRUE(table().hwInconsistentEntries().empty());
    });
}

TEST_F(L3LagTest, AResultOfAllZeroDecodesAsNotValidWhateverTheSoftwareHad) {
    start();
    takeWrites();
    table().entryIs(5, L3LagResult());
    EXPECT_EQ(takeWriteCount(), 0u) << "the row is empty already";
    EXPECT_TRUE(table().entryHas(5));
    EXPECT_FALSE(lagConvertor().decodeHwEntry(5)->valid());
    restart();
    EXPECT_FALSE(table().entryHas(5));
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(L3LagTest, UnchangedResultNeitherWritesNorPublishes) {
    start();
    table().entryIs(5, ports(1));
    takeWrites();
    auto const& changes = published();
    table().entryIs(5, ports(1));
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_THAT(changes, IsEmpty());
    table().entryIs(5, ports(2));
    EXPECT_EQ(takeWriteCount(), 6u);
    EXPECT_THAT(changes, ElementsAre(Pair("entry", 5)));
}

TEST_F(L3LagTest, DeletingWritesTheNullEntryAndReturnsTheResult) {
    start();
    table().entryIs(5, ports(3));
    takeWrites();
    auto const& changes = published();
    EXPECT_EQ(table().entryDel(5), ports(3));
    EXPECT_EQ(takeWriteCount(), 6u);
    EXPECT_EQ(shadowWords(5), packed(3, {{64, 32, control(5)}}));
    EXPECT_THAT(chipRow(1, 5), ElementsAre(0, 0));
    EXPECT_THAT(changes, ElementsAre(Pair("entry", 5)));
    EXPECT_EQ(table().entryDel(5), L3LagResult());
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_THAT(changes, SizeIs(1));
}

TEST_F(L3LagTest, DeletingAllGoesKeyByKey) {
    start();
    for (U32 const key : {1u, 2u, 3u})
        table().entryIs(key, ports(key));
    takeWrites();
    auto const& changes = published();
    table().entryDelAll();
    EXPECT_EQ(takeWriteCount(), 18u);
    EXPECT_THAT(changes, testing::UnorderedElementsAre(Pair("entry", 1), Pair("entry", 2), Pair("entry", 3)));
}

TEST_F(L3LagTest, EntriesBeforeTheStartAreWrittenByTheStart) {
    make();
    table().entryIs(5, ports(3));
    table().handleEntry(5);
    EXPECT_EQ(takeWriteCount(), 0u);
    bringUp(StartMode::cold);
    EXPECT_THAT(chipRow(0, 5), ElementsAre(3, 0));
    EXPECT_THAT(chipRow(1, 5), ElementsAre(3, 0));
}

TEST_F(L3LagTest, WhatIsProgrammedAndDecodedIsTraced) {
    start();
    NerioTest::TraceCapture const trace("NerioTableL3Lag", 7);
    table().entryIs(5, ports(3));
    table().entryDel(5);
    lagConvertor().decodeHwEntry(5);
    table().entryIs(6, ports(0, true));
    lagConvertor().decodeHwEntry(6);
    EXPECT_THAT(trace.lines(),
                ElementsAre("L3LagTable: Programming Entry L3LagEntry( 5 portMask:0x000000000003 )",
                            "L3LagTable: Programming Entry L3LagEntry( 5 portMask:0x000000000000 )",
                            "L3LagTable: Programming Entry L3LagEntry( 6 portMask:0x000000000000, "
                            "cpuPriority )",
                            "Decoded entry is L3LagEntry( 6 portMask:0x000000000000, cpuPriority )"));
}

TEST_F(L3LagTest, CopiesThatDifferMarkTheKeyAndTheFirstCopyIsTaken) {
    start();
    table().entryIs(5, ports(3));
    table().entryIs(6, ports(3));
    shadow(1).store(5, packed(3, {{0, 1, 1}, {54, 1, 1}, {64, 32, control(5)}}));
    takeWrites();
    restart();
    EXPECT_EQ(table().entry(5), ports(3));
    EXPECT_TRUE(table().hwInconsistentEntry(5));
    EXPECT_FALSE(table().hwInconsistentEntry(6));
    EXPECT_EQ(takeWriteCount(), 3u) << "the second copy is written again";
    EXPECT_EQ(shadowWords(5, 1), packed(3, {{0, 2, 3}, {64, 32, control(5)}}));
}

TEST_F(L3LagTest, AnEmptyRowWhoseCopyIsNotEmptyMarksTheKeyAndIsCleared) {
    start();
    table().entryIs(5, ports(3));
    shadow(0).store(5, packed(3, {{64, 32, control(5)}}));
    takeWrites();
    restart();
    EXPECT_FALSE(table().entryHas(5));
    EXPECT_TRUE(table().hwInconsistentEntry(5));
    EXPECT_EQ(takeWriteCount(), 3u);
    EXPECT_THAT(chipRow(1, 5), ElementsAre(0, 0)) << "nobody wants what the second copy held";
}

TEST_F(L3LagTest, ADifferenceInTheControlWordAloneMarksTheKeyButIsNotWritten) {
    start();
    table().entryIs(5, ports(3));
    shadow(1).store(5, packed(3, {{0, 2, 3}, {64, 32, control(6)}}));
    takeWrites();
    restart();
    EXPECT_TRUE(table().hwInconsistentEntry(5));
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(L3LagTest, AWarmStartLeavesARowThatNobodyWantsAndAColdStartClearsIt) {
    start();
    auto const stray = packed(3, {{54, 1, 1}, {64, 32, control(5)}});  // no field set, parity wrong
    for (U32 const copy : {0u, 1u})
        shadow(copy).store(5, stray);
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(shadowWords(5), stray);
    EXPECT_FALSE(table().entryHas(5));
    table().initHwEntries(true);
    EXPECT_EQ(takeWriteCount(), 2u * 56 * 3);
    EXPECT_EQ(shadowWords(5, 1), packed(3, {{64, 32, control(5)}}));
}

TEST_F(L3LagTest, ARowMissingFromAShadowIsWrittenByTheStart) {
    start();
    table().entryIs(5, ports(3));
    shadow(1).drop(5);
    shadow(1).drop(6);
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 6u) << "row 5 and row 6 of the second copy";
    EXPECT_THAT(chipRow(1, 5), ElementsAre(3, 0));
}

TEST_F(L3LagTest, ACorruptRowCountsAsEmpty) {
    start();
    table().entryIs(5, ports(3));
    shadow().corrupt(5);
    takeWrites();
    restart();
    EXPECT_FALSE(table().entryHas(5));
    EXPECT_TRUE(table().hwInconsistentEntry(5)) << "the second copy holds more than nothing";
    EXPECT_GE(shadow().corruptionsDetected(), 1u);
    EXPECT_EQ(takeWriteCount(), 6u);
    EXPECT_EQ(shadowWords(5), packed(3, {{64, 32, control(5)}}));
}

TEST_F(L3LagTest, AStoredRowOfMoreThanEightWordsIsARangeFailure) {
    start();
    shadow().store(5, std::vector<U32>(9, 0));
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { restart(); }),
              "an array of 9 data words is longer than the limit of 8");
}

TEST_F(L3LagTest, AWriteThatFailsKeepsTheEntryAndTheSameCallTriesAgain) {
    start();
    for (U64 fault = 1; fault <= 6; ++fault) {
        SCOPED_TRACE(fault);
        faulty().faultIs(Chip::Fault::fail, faulty().writes() + fault);
        EXPECT_THROW(table().entryIs(5, ports(fault)), NerioSwitchApi::BusException);
        EXPECT_EQ(table().entry(5), ports(fault));
        table().entryIs(5, ports(fault));
        EXPECT_EQ(chipRow(0, 5), chipRow(1, 5));
        EXPECT_EQ(chipRow(0, 5)[0], fault);
        takeWrites();
        table().entryIs(5, ports(fault));
        EXPECT_EQ(takeWriteCount(), 0u);
    }
    holdsAcrossRestart([&] { EXPECT_EQ(table().entry(5), ports(6)); });
}

TEST_F(L3LagTest, TheFrameworksQuestionsAreAnsweredByItem) {
    start();
    table().entryIs(5, ports(3));
    EXPECT_TRUE(table().entryHasByDirectItem(item(5, ports(1))));
    EXPECT_FALSE(table().entryHasByDirectItem(item(6, ports(3))));
    EXPECT_TRUE(table().entryEqualByDirectItem(item(5, ports(3), false)));
    EXPECT_FALSE(table().entryEqualByDirectItem(item(5, ports(1))));
    EXPECT_FALSE(table().entryEqualByDirectItem(item(6, L3LagResult())));

    auto const fresh = L3LagEntryIs(5);
    EXPECT_TRUE(table().updateDirectItem(fresh));
    EXPECT_EQ(fresh->result(), ports(3));
    EXPECT_FALSE(table().updateDirectItem(fresh)) << "it has the stored result already";
    EXPECT_FALSE(table().updateDirectItem(L3LagEntryIs(6)));

    table().hwInconsistentEntryIs(5, true);
    EXPECT_TRUE(table().hwInconsistentEntryFromDirectItem(item(5, {})));
    EXPECT_FALSE(table().hwInconsistentEntryFromDirectItem(item(6, {})));
    table().hwInconsistentEntryDelFromDirectItem(item(5, {}));
    EXPECT_TRUE(table().hwInconsistentEntries().empty());

    table().entryIsByDirectItem(item(7, ports(9)));
    EXPECT_EQ(table().entry(7), ports(9));
    EXPECT_THAT(chipRow(1, 7), ElementsAre(9, 0));
}

TEST_F(L3LagTest, InconsistentMarksPublishOnChangeOnly) {
    start();
    auto const& changes = published();
    table().hwInconsistentEntryIs(1, true);
    table().hwInconsistentEntryIs(1, true);
    table().hwInconsistentEntryIs(1, false);
    table().hwInconsistentEntryDel(1);
    table().hwInconsistentEntryDel(1);
    EXPECT_THAT(changes, SizeIs(3));
    EXPECT_EQ(changes.back(), std::pair(std::string("hwInconsistentEntry"), 1u));
}

TEST_F(L3LagTest, RowsAreCountedByWhatTheyHold) {
    start();
    convertor().initEntryCounter(TableGauge::TableKey("L3 LAG", "Pipe0", "lags"), 56, 0);
    auto const counter = convertor().entryCounter(0);
    table().entryIs(5, ports(3));
    table().entryIs(5, ports(4));
    table().entryIs(6, ports(3));
    EXPECT_EQ(counter->used(), 2u);
    table().entryDel(5);
    table().entryDel(5);
    EXPECT_EQ(counter->used(), 1u);
}

TEST_F(L3LagTest, DestructionWritesNothing) {
    start();
    table().entryIs(5, ports(3));
    takeWrites();
    make();
    EXPECT_EQ(takeWriteCount(), 0u);
}

using L3LagDeathTest = L3LagTest;

TEST_F(L3LagDeathTest, AnItemThatIsNotValidIsNoEntry) {
    start();
    EXPECT_DEATH(table().entryIsByDirectItem(item(5, ports(3), false)),
                 "Assertion failed: item->valid\\(\\) ");
}

TEST_F(L3LagDeathTest, AHardwareTableMissingFromTheCollectionIsAnAssertion) {
    make();
    auto const descriptors = Belmo::make<NerioSwitchApi::HwTableDescriptorConfig>(
        Belmo::Ptr<Chip::SimulatedChip>(&chip()), NerioSwitchApi::memoryShadowStore(),
        Belmo::make<NerioSwitchApi::HwTableCollection>());
    auto const types = Belmo::make<NerioSwitchApi::SwTableTypes>(
        descriptors, Belmo::make<NerioSwitchApi::HwTableCollection>());
    table().profileIs(Belmo::Ptr<NerioSwitch::ProfileInfo const>(&profile()));
    table().doSetProfileConvertor(types);
    EXPECT_DEATH(table().doCreateHwTable(), "Assertion failed: table ");
}

TEST_F(L3LagDeathTest, AChipOfMorePortsThanARowHasBitsIsAProgrammingError) {
    profile().numPorts = 61;
    EXPECT_DEATH(start(), "fieldsFit");
}

}  // namespace
