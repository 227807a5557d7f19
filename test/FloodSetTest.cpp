// Flood sets, and with them what all tables with replicated copies have in common.
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FailureText.h"
#include "NerioSwitchTable/NerioTableFloodSet.h"
#include "PackedWords.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioTest::packed;
using NerioTest::PackedBits;
using NerioTest::StartMode;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

FloodSetEntry floods(U32 vlan, U64 unicast, U64 multicast, double lastUpdate = 0) {
    return FloodSetEntry(vlan, FloodSetResult().uucPortMaskIs(unicast).umcPortMaskIs(multicast))
        .lastUpdateIs(Belmo::Duration(lastUpdate));
}

/** A row of a chip of that many ports, with its parity if the chip has one. */
std::vector<U32> floodRow(U32 vlan, U32 ports, U64 unicast, U64 multicast, bool hasParity = true) {
    std::vector<PackedBits> fields{{0, ports, unicast}, {ports, ports, multicast}};
    auto const data = packed(4, fields);
    U32 ones = 0;
    for (U32 const word : data)
        ones += static_cast<U32>(__builtin_popcount(word));
    fields.push_back({std::size_t{2} * ports, 1, hasParity ? ones & 1 : 0});
    fields.push_back({128, 12, vlan});
    fields.push_back({143, 1, 1});
    return packed(5, fields);
}

class FloodSetTest : public NerioTest::TableFixture<FloodSetTable> {
protected:
    FloodSetTest() : TableFixture([] { return floodSetTableFactory("floods"); }) {}

    void oneTableFor(U16 ports) {
        profile().numPorts = ports;
        profile().ingressPipesAre({{0, 0, static_cast<U16>(ports - 1)}});
        profile().layouts[NerioSwitch::TableLayoutEnum::tableLayoutVlan] = {1, 1, 1, 0, {0}, {0}};
        profile().hasCpuPipeline = false;
    }
    /** The prefixes of the registers of each copy. */
    std::vector<Belmo::String> prefixes() {
        std::vector<Belmo::String> all;
        for (auto const& [id, each] : convertor().hwTables())
            all.push_back(chip().path(each->registersOf(1)[0]));
        return all;
    }
};

TEST_F(FloodSetTest, ValuesHaveTheirTexts) {
    EXPECT_EQ(FloodSetEntry().key().value(), 1);
    EXPECT_EQ(FloodSetResult().uucPortMaskIs(0x123456789ABC).umcPortMaskIs(5).resultString(),
              "uucPortMask:0x123456789abc umcPortMask:0x000000000005");
    EXPECT_EQ(floods(7, 1, 2, 3).resultString(), "uucPortMask:0x000000000001 umcPortMask:0x000000000002");
    EXPECT_NE(floods(7, 1, 2, 3), floods(7, 1, 2, 4));
    EXPECT_NE(floods(7, 1, 2), floods(8, 1, 2));
    EXPECT_EQ(Sorn::text(floods(7, 1, 2).result()),
              "NerioSwitchTable::FloodSetResult(uucPortMask=1,umcPortMask=2)");
}

TEST_F(FloodSetTest, EachCopyHoldsTheMasksOfTheWholeChip) {
    start();
    takeWrites();
    U64 const unicast = 0x8000000000001;
    U64 const multicast = 0x5A5A5A5A5A5A5;
    table().entryIs(floods(4094, unicast, multicast));
    auto const row = floodRow(4094, 52, unicast, multicast);
    for (U32 const copy : {0u, 1u, 2u})
        EXPECT_EQ(shadowWords(4094, copy), row) << copy;
    auto const writes = takeWrites();
    ASSERT_THAT(writes, SizeIs(15));
    std::vector<Belmo::String> const names{"floodset_data0", "floodset_data1", "floodset_data2",
                                           "floodset_data3", "floodset_ctl"};
    std::vector<Belmo::String> const of{"ingress/vlan[0]/", "ingress/vlan[1]/", "cpu_pipeline[0]/vlan/"};
    for (std::size_t i = 0; i < writes.size(); ++i)
        EXPECT_THAT(writes[i], Pair(of[i / 5] + names[i % 5], row[i % 5]));
    EXPECT_TRUE(table().hwTablesDuplicate());
    EXPECT_EQ(convertor().descriptor(2)->name(), "floods/demo/FloodSet/2");
    EXPECT_EQ(convertor().descriptor(1)->firstIndex(), 1u);
    EXPECT_EQ(convertor().descriptor(1)->lastIndex(), 4094u);
    EXPECT_EQ(convertor().hwStaticWord(4), 0xFFFFFFFFu);
}

TEST_F(FloodSetTest, AColdStartWritesEveryRowOfEveryCopy) {
    start();
    EXPECT_EQ(takeWriteCount(), 3u * 4094 * 5);
    EXPECT_EQ(shadowWords(1), floodRow(1, 52, 0, 0));
    EXPECT_EQ(shadowWords(4094, 2), floodRow(4094, 52, 0, 0));
}

TEST_F(FloodSetTest, MasksCrossWordsWhateverTheNumberOfPorts) {
    for (U16 const ports : {U16{16}, U16{31}, U16{32}, U16{33}, U16{52}, U16{63}}) {
        SCOPED_TRACE(ports);
        auto const profileOfPorts = NerioSwitch::profilePreset("default");
        profileOfPorts->numPorts = ports;
        auto const chip = Chip::simulatedChip(*profileOfPorts);
        NerioSwitchApi::TableFramework framework(profileOfPorts, chip, NerioSwitchApi::memoryShadowStore());
        auto const table = floodSetTableFactory("floods");
        framework.tableIs(table, StartMode::cold);
        U64 const all = ~U64{0};
        U64 const fits = (U64{1} << ports) - 1;
        table->entryIs(floods(5, all, all & ~U64{2}));
        auto const stored = table->profileConvertorPtr()->hwTable(1)->storedEntry(5);
        EXPECT_EQ(std::vector<U32>(stored->words().begin(), stored->words().end()),
                  floodRow(5, ports, fits, fits & ~U64{2}))
            << "bits from the number of ports on are dropped";
    }
}

TEST_F(FloodSetTest, WithoutParityTheBitStaysClear) {
    profile().floodSetParity = false;
    start();
    table().entryIs(floods(9, 1, 0));
    EXPECT_EQ(shadowWords(9), floodRow(9, 52, 1, 0, false));
    EXPECT_EQ(shadowWords(9)[3], 0u);
    holdsAcrossRestart([&] { EXPECT_EQ(table().entry(9), floods(9, 1, 0)); });
}

TEST_F(FloodSetTest, RegistersMovedWithVersion5OfTheRegisterInterface) {
    profile().vlanRegVer = 2;  // has no say in it
    struct {
        NerioSwitch::ProfileHwApi version;
        bool ownBlock;
    } const cases[] = {{{4, 9}, false}, {{5, 0}, true}, {{5, 1}, true}, {{10, 0}, true}};
    for (auto const& each : cases) {
        SCOPED_TRACE(each.version.text());
        auto const profileOfVersion = NerioSwitch::profilePreset("default");
        profileOfVersion->hwApi = each.version;
        auto const chipOfVersion = Chip::simulatedChip(*profileOfVersion);
        NerioSwitchApi::TableFramework framework(profileOfVersion, chipOfVersion,
                                                 NerioSwitchApi::memoryShadowStore());
        auto const table = floodSetTableFactory("floods");
        framework.tableIs(table, StartMode::cold);
        auto const path = [&](U32 copy) {
            return chipOfVersion->path(table->profileConvertorPtr()->hwTable(copy)->registersOf(1)[4]);
        };
        EXPECT_EQ(path(1),
                  each.ownBlock ? "ingress/vlan[1]/floodset_ctl" : "pipeline[1]/processor/floodset_ctl");
        EXPECT_EQ(path(2), each.ownBlock ? "cpu_pipeline[0]/vlan/floodset_ctl"
                                         : "cpu_pipeline[0]/processor/floodset_ctl");
    }
}

TEST_F(FloodSetTest, WithoutACpuPipelineThereIsNoExtraCopy) {
    profile().hasCpuPipeline = false;
    start();
    EXPECT_THAT(prefixes(), ElementsAre("ingress/vlan[0]/floodset_data0", "ingress/vlan[1]/floodset_data0"));
}

TEST_F(FloodSetTest, AChipWithoutCopiesTakesEntriesAndWritesNothing) {
    profile().hasCpuPipeline = false;
    profile().layouts.erase(NerioSwitch::TableLayoutEnum::tableLayoutVlan);
    start();
    table().entryIs(floods(5, 1, 1));
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entry(5), floods(5, 1, 1));
    restart();
    EXPECT_THAT(table().entries(), IsEmpty());
}

TEST_F(FloodSetTest, TheKeyOfAnEntryIsWhereItGoes) {
    start();
    table().entryIs(floods(5, 1, 1));
    table().entryIs(6, floods(5, 2, 2));
    EXPECT_EQ(table().entry(5), floods(5, 1, 1));
    EXPECT_EQ(table().entry(6), floods(6, 2, 2)) << "a key beside an entry becomes its own";
    EXPECT_EQ(table().entryDel(6), floods(6, 2, 2));
    EXPECT_EQ(table().entryDel(6), FloodSetEntry());
}

TEST_F(FloodSetTest, ADeletionWritesEmptyMasksWithTheirParity) {
    start();
    table().entryIs(floods(5, 1, 0));
    EXPECT_EQ(shadowWords(5)[3], 1u << 8) << "parity is bit 104";
    takeWrites();
    table().entryDel(5);
    EXPECT_EQ(takeWriteCount(), 15u);
    EXPECT_EQ(shadowWords(5), floodRow(5, 52, 0, 0));
}

TEST_F(FloodSetTest, AnotherTimeOfUpdateIsPublishedButNotWritten) {
    start();
    table().entryIs(floods(5, 3, 4, 1));
    takeWrites();
    U32 published = 0;
    auto const observation = table().publisher().observe("entry", [&](Belmo::Change const&) { ++published; });
    table().entryIs(floods(5, 3, 4, 2));
    EXPECT_EQ(published, 1u);
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entry(5).lastUpdate().seconds(), 2);
}

TEST_F(FloodSetTest, OnlyCopiesThatDifferAreWritten) {
    start();
    table().entryIs(floods(5, 3, 4));
    shadow(1).drop(5);
    auto stored = shadowWords(5, 2);
    stored[4] ^= 1u << 20;  // of the control word, which is compared as well
    shadow(2).store(5, stored);
    takeWrites();
    table().handleEntry(5);
    auto const writes = takeWrites();
    ASSERT_THAT(writes, SizeIs(10));
    EXPECT_EQ(writes[0].first, "ingress/vlan[1]/floodset_data0");
    EXPECT_EQ(writes[5].first, "cpu_pipeline[0]/vlan/floodset_data0");
}

TEST_F(FloodSetTest, SurvivesARestartWithoutTheTime) {
    start();
    table().entryIs(floods(1, 1, 0, 7));
    table().entryIs(floods(4094, 0, 1));
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_THAT(table().entries(), SizeIs(2));
    EXPECT_EQ(table().entry(1), floods(1, 1, 0));
    EXPECT_EQ(table().entry(4094), floods(4094, 0, 1));
    table().entryIs(floods(7, 0, 0, 7));
    restart();
    EXPECT_FALSE(table().entryHas(7)) << "a row of empty masks makes no entry";
    EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
}

TEST_F(FloodSetTest, ACopyThatSaysSomethingElseMarksTheKeyAndTheFirstOneHolds) {
    start();
    table().entryIs(floods(5, 3, 4));
    shadow(2).store(5, floodRow(5, 52, 3, 5));
    shadow(1).store(6, floodRow(6, 52, 1, 0));
    takeWrites();
    restart();
    EXPECT_EQ(table().entry(5), floods(5, 3, 4));
    EXPECT_TRUE(table().hwInconsistentEntry(5));
    EXPECT_TRUE(table().hwInconsistentEntry(6));
    EXPECT_FALSE(table().entryHas(6));
    EXPECT_THAT(table().hwInconsistentEntries(), SizeIs(2));
    EXPECT_EQ(takeWriteCount(), 5u) << "the entry's row of the last copy";
    EXPECT_EQ(shadowWords(5, 2), floodRow(5, 52, 3, 4));
}

TEST_F(FloodSetTest, AMissingRowEndsTheReadingAndMarksTheKey) {
    start();
    table().entryIs(floods(5, 3, 4));
    table().entryIs(floods(6, 3, 4));
    shadow(1).drop(5);
    shadow(0).drop(6);
    takeWrites();
    NerioTest::TraceCapture const trace("NerioTableFloodSet", 9);
    restart();
    EXPECT_THAT(trace.lines(),
                ElementsAre("table 1 index 5 does not exist.", "table 0 index 6 does not exist."));
    EXPECT_EQ(table().entry(5), floods(5, 3, 4));
    EXPECT_TRUE(table().hwInconsistentEntry(5));
    EXPECT_TRUE(table().hwInconsistentEntry(6));
    EXPECT_FALSE(table().entryHas(6)) << "what further copies hold is not asked for";
    EXPECT_EQ(takeWriteCount(), 10u) << "a row in copy 1, and a default row in copy 0";
    EXPECT_EQ(shadowWords(6, 0), floodRow(6, 52, 0, 0));
    EXPECT_EQ(shadowWords(6, 1), floodRow(6, 52, 3, 4)) << "a row that the shadow holds stays";
}

TEST_F(FloodSetTest, ASingleCopyHasNothingToCompareWith) {
    oneTableFor(52);
    start();
    table().entryIs(floods(5, 3, 4));
    shadow().drop(6);
    restart();
    EXPECT_EQ(table().entry(5), floods(5, 3, 4));
    EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
}

TEST_F(FloodSetTest, SoftwareWinsOverARowReadLater) {
    start();
    table().entryIs(floods(5, 3, 4));
    shadow(0).store(5, floodRow(5, 52, 7, 7));
    takeWrites();
    convertor().syncEntries(0);
    EXPECT_EQ(table().entry(5), floods(5, 3, 4));
    EXPECT_EQ(takeWriteCount(), 5u);
    EXPECT_EQ(shadowWords(5), floodRow(5, 52, 3, 4));
    EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
}

TEST_F(FloodSetTest, AResetForcesEmptyRowsAndAWarmStartKeepsThem) {
    start();
    auto stray = floodRow(8, 52, 0, 0);
    stray[3] |= 1u << 31;  // above all fields
    shadow(1).store(8, stray);
    takeWrites();
    restart(StartMode::warm);
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(shadowWords(8, 1), stray);
    restart(StartMode::cold);
    EXPECT_EQ(shadowWords(8, 1), floodRow(8, 52, 0, 0));
}

TEST_F(FloodSetTest, EntriesBeforeTheStartAreWrittenOncePerCopy) {
    make();
    table().entryIs(floods(5, 3, 4));
    bringUp(StartMode::cold);
    EXPECT_EQ(takeWriteCount(), 3u * 4094 * 5);
    EXPECT_EQ(shadowWords(5, 2), floodRow(5, 52, 3, 4));
}

TEST_F(FloodSetTest, NothingIsWrittenWhileTheFirstDescriptorIsNotInitialized) {
    start();
    takeWrites();
    convertor().descriptor(0)->initializedIs(false);
    table().entryIs(floods(5, 3, 4));
    EXPECT_EQ(takeWriteCount(), 0u);
    convertor().descriptor(0)->initializedIs(true);
    convertor().descriptor(1)->initializedIs(false);
    table().handleEntry(5);
    EXPECT_EQ(takeWriteCount(), 15u) << "the first one speaks for all";
}

TEST_F(FloodSetTest, ACorruptRowCountsAsMissing) {
    start();
    table().entryIs(floods(5, 3, 4));
    shadow(1).corrupt(5);
    takeWrites();
    table().entryIs(floods(5, 3, 5));
    EXPECT_EQ(takeWriteCount(), 15u);
    EXPECT_EQ(shadow(1).corruptionsDetected(), 1u);
}

TEST_F(FloodSetTest, VlanNumbersHaveTheirRange) {
    constexpr auto const* range = "Bridging::VlanId::value < 1 or > 4094 not allowed";
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { floods(0, 0, 0); }), range);
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { floods(4095, 0, 0); }), range);
}

using FloodSetDeathTest = FloodSetTest;

TEST_F(FloodSetDeathTest, AChipOf64PortsHasNoLayout) {
    profile().numPorts = 64;
    make();
    EXPECT_DEATH(bringUp(StartMode::cold), "Assertion failed: len < 64 ");
}

TEST_F(FloodSetDeathTest, ACopyMissingFromTheCollectionIsAnAssertion) {
    make();
    auto const descriptors = Belmo::make<NerioSwitchApi::HwTableDescriptorConfig>(
        Belmo::Ptr<Chip::SimulatedChip>(&chip()), NerioSwitchApi::memoryShadowStore(),
        Belmo::make<NerioSwitchApi::HwTableCollection>());
    auto const types = Belmo::make<NerioSwitchApi::SwTableTypes>(
        descriptors, Belmo::make<NerioSwitchApi::HwTableCollection>());
    table().profileIs(Belmo::Ptr<NerioSwitch::ProfileInfo const>(&profile()));
    table().doSetProfileConvertor(types);
    EXPECT_DEATH(table().doCreateHwTable(), "Assertion failed: hwTable ");
}

}  // namespace
