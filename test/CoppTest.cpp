#include <array>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "NerioSwitchTable/NerioTableCopp.h"
#include "PackedWords.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::ProfileHwApi;
using NerioTest::packed;
using NerioTest::StartMode;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr U32 filterNone = 0x3FFFF;

CoppEntry raw(U32 result) {
    return CoppEntry().resultIs(result);
}

CoppEntry limit(U32 increment, U32 scaleFactor = 0) {
    return CoppEntry().incrementIs(increment).scaleFactorIs(scaleFactor);
}

/** The default chip: two pipelines, each with a limiter, and one behind the CPU. */
class CoppTest : public NerioTest::TableFixture<CoppTable> {
protected:
    static constexpr NerioSwitchApi::HwTableId cpuTx = 2;

    CoppTest() : TableFixture([] { return coppTableFactory("copp"); }) {}

    CoppConvertor& coppConvertor() { return dynamic_cast<CoppConvertor&>(convertor()); }
    /** The words of a key: in the pipelines, and behind the CPU. */
    std::vector<U32> wordsOf(U32 key) {
        std::vector<U32> words;
        for (auto const& [id, hwTable] : convertor().hwTables()) {
            auto const row = shadowWords(key, id);
            EXPECT_THAT(row, SizeIs(1)) << "hardware table " << id;
            words.push_back(row.at(0));
        }
        return words;
    }
    void rowIs(NerioSwitchApi::HwTableId id, U32 key, U32 value) {
        shadow(id).store(key, std::span(&value, 1));
    }
};

/** The same before scale factors came. */
class CoppWithoutScaleTest : public CoppTest {
protected:
    CoppWithoutScaleTest() { profile().hwApi = {6, 1}; }
};

TEST_F(CoppTest, AHardwareTableForEachPipelineAndOneBehindTheCpu) {
    start();
    ASSERT_THAT(convertor().hwTables(), SizeIs(3));
    EXPECT_TRUE(table().hwTablesDuplicate());
    EXPECT_EQ(coppConvertor().numCoppTables(), 2);
    EXPECT_EQ(coppConvertor().cpuTxTableId(), cpuTx);
    EXPECT_EQ(+CoppConvertor::dataArrayIndex, 0);
    for (auto const& [id, descriptor] : convertor().descriptors()) {
        EXPECT_EQ(descriptor->name(), fmt::format("copp/demo/Copp/{}", id));
        EXPECT_EQ(descriptor->firstIndex(), 0u);
        EXPECT_EQ(descriptor->lastIndex(), 14u);
    }
}

TEST_F(CoppTest, WhatIsSentToTheCpuIsPolicedWithoutACpuPipelineAsWell) {
    profile().hasCpuPipeline = false;
    start();
    table().entryIs(3, limit(1000));
    EXPECT_EQ(chipRegister("cpu_tx_pipeline[0]/rate_limiter/link_local_limit"), 1000u);
    EXPECT_THAT(wordsOf(3), ElementsAre(660, 660, 1000));
}

TEST_F(CoppTest, RegisterBlocksFollowTheirNamesAndTheNumberOfTables) {
    for (bool const noMux : {false, true}) {
        for (U16 const tables : {U16{1}, U16{2}, U16{4}}) {
            SCOPED_TRACE(fmt::format("noMux {} tables {}", noMux, tables));
            auto const profileOfChip = NerioSwitch::profilePreset("default");
            profileOfChip->noMuxInRegName = noMux;
            auto& layout = profileOfChip->layouts[NerioSwitch::TableLayoutEnum::tableLayoutL2];
            layout.tables = layout.pipelines = layout.processors = tables;
            profileOfChip->numPipelines = tables;
            auto const chipOfProfile = Chip::simulatedChip(*profileOfChip);
            NerioSwitchApi::TableFramework framework(profileOfChip, chipOfProfile,
                                                     NerioSwitchApi::memoryShadowStore());
            auto const copp = coppTableFactory("copp");
            framework.tableIs(copp, StartMode::cold);
            copp->entryIs(2, limit(1000, 1));
            auto const wordAt = [&](std::string const& path) {
                return chipOfProfile->read(chipOfProfile->address(path));
            };
            U32 const share = tables == 1 ? 1000 : tables == 2 ? 660 : 500;
            for (U32 id = 0; id < tables; ++id) {
                auto const prefix = noMux ? fmt::format("ingress/rate_limiter[{}]/", id)
                                          : fmt::format("pipeline[{}]/rate_limiter/", id);
                EXPECT_EQ(wordAt(prefix + "igmp_limit"), packed(1, {{0, 18, share}, {20, 3, 1}})[0]);
            }
            EXPECT_EQ(wordAt("cpu_tx_pipeline[0]/rate_limiter/igmp_limit"),
                      packed(1, {{0, 18, 1000}, {20, 3, 1}})[0]);
        }
    }
}

TEST_F(CoppTest, ScaleFactorsComeWithHardwareApi62) {
    for (ProfileHwApi const version : {ProfileHwApi(2, 0),
                                       {4, 0},
                                       {4, 1},
                                       {5, 0},
                                       {5, 1},
                                       {6, 0},
                                       {6, 1},
                                       {6, 2},
                                       {7, 9},
                                       {8, 0},
                                       {10, 0}}) {
        SCOPED_TRACE(version.text());
        bool const scales = version >= ProfileHwApi(6, 2);
        auto const profileOfVersion = NerioSwitch::profilePreset("default");
        profileOfVersion->hwApi = version;
        auto const chipOfVersion = Chip::simulatedChip(*profileOfVersion);
        NerioSwitchApi::TableFramework framework(profileOfVersion, chipOfVersion,
                                                 NerioSwitchApi::memoryShadowStore());
        auto const copp = coppTableFactory("copp");
        framework.tableIs(copp, StartMode::cold);
        auto const wordAt = [&](std::string const& path) {
            return chipOfVersion->read(chipOfVersion->address(path));
        };
        copp->entryIs(0, CoppEntry().resultIs(500).intervalIs(600));
        copp->entryIs(12, CoppEntry().resultIs(700).incrementIs(800).scaleFactorIs(1));
        EXPECT_EQ(wordAt("cpu_tx_pipeline[0]/rate_limiter/mac_learn_limit"), scales ? 800u | 1u << 20 : 700u);
        EXPECT_EQ(wordAt("cpu_tx_pipeline[0]/rate_limiter/interval_period"), scales ? 0u : 500u);
        EXPECT_EQ(wordAt("header/copp_interval"), scales ? 600u : 0u);
        EXPECT_EQ(dynamic_cast<CoppConvertor&>(*copp->profileConvertorPtr()).scaleFactorSupported(), scales);
    }
}

TEST_F(CoppTest, TheVersionOfScaleFactorsIsAnAttributeThatTheConvertorDoesNotRead) {
    make();
    EXPECT_EQ(table().scaleFactorVersion(), ProfileHwApi(6, 2));
    int published = 0;
    auto const observation =
        table().publisher().observe("scaleFactorVersion", [&](Belmo::Change const&) { ++published; });
    table().scaleFactorVersionIs({6, 2});
    EXPECT_EQ(published, 0);
    table().scaleFactorVersionIs({9, 0});
    EXPECT_EQ(published, 1);
    EXPECT_EQ(table().scaleFactorVersion(), ProfileHwApi(9, 0));
    bringUp(StartMode::cold);
    EXPECT_TRUE(coppConvertor().scaleFactorSupported()) << "it goes by 6.2 all the same";
}

TEST_F(CoppTest, GoldenRows) {
    start();
    takeWrites();
    table().entryIs(0, CoppEntry().intervalIs(31250.75f));
    EXPECT_THAT(takeWrites(),
                ElementsAre(Pair("header/copp_interval", 31250), Pair("header/copp_interval", 31250),
                            Pair("header/copp_interval", 31250)))
        << "one register, written once for each table";
    EXPECT_THAT(wordsOf(0), Each(31250));
    table().entryIs(14, limit(1000, 6));
    EXPECT_THAT(
        takeWrites(),
        ElementsAre(
            Pair("cpu_tx_pipeline[0]/rate_limiter/default_limit", packed(1, {{0, 18, 1000}, {20, 3, 6}})[0]),
            Pair("ingress/rate_limiter[0]/default_limit", packed(1, {{0, 18, 660}, {20, 3, 6}})[0]),
            Pair("ingress/rate_limiter[1]/default_limit", packed(1, {{0, 18, 660}, {20, 3, 6}})[0])));
    table().entryIs(1, CoppEntry().resultIs(5));
    EXPECT_THAT(wordsOf(1), ElementsAre(1, 1, 0)) << "a result counts for nothing here";
}

TEST_F(CoppWithoutScaleTest, GoldenRows) {
    start();
    takeWrites();
    table().entryIs(0, raw(31250));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("cpu_tx_pipeline[0]/rate_limiter/interval_period", 31250),
                                          Pair("ingress/rate_limiter[0]/interval_period", 31250),
                                          Pair("ingress/rate_limiter[1]/interval_period", 31250)));
    table().entryIs(13, raw(1000));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("cpu_tx_pipeline[0]/rate_limiter/mirror_limit", 1000),
                                          Pair("ingress/rate_limiter[0]/mirror_limit", 660),
                                          Pair("ingress/rate_limiter[1]/mirror_limit", 660)));
    table().entryIs(13, raw(CoppEntry::filterNone));
    EXPECT_THAT(wordsOf(13), Each(filterNone));
    table().entryIs(13, limit(1000, 1));
    EXPECT_THAT(wordsOf(13), Each(0)) << "an increment counts for nothing here";
}

TEST_F(CoppWithoutScaleTest, ThreePipelinesHalveALimitAndOneKeepsIt) {
    for (auto const& [pipelines, share] : {std::pair{U16{1}, 1000u}, {U16{3}, 500u}}) {
        profile().numPipelines = pipelines;
        start();
        table().entryIs(5, raw(1000));
        EXPECT_THAT(wordsOf(5), ElementsAre(share, share, 1000));
    }
}

TEST_F(CoppTest, OnePipelineStillTurnsAnIncrementOfZeroIntoOne) {
    profile().numPipelines = 1;
    start();
    table().entryIs(5, limit(1000));
    EXPECT_THAT(wordsOf(5), Each(1000));
    table().entryIs(5, limit(0, 1));
    EXPECT_THAT(wordsOf(5), ElementsAre(1u | 1u << 20, 1u | 1u << 20, 1u << 20));
}

TEST_F(CoppWithoutScaleTest, AColdStartWritesIntervalsOfASecondAndNoLimits) {
    start();
    EXPECT_THAT(takeWrites(), SizeIs(45));
    EXPECT_THAT(wordsOf(0), Each(31250000));
    for (U32 key = 1; key <= 14; ++key)
        EXPECT_THAT(wordsOf(key), Each(filterNone)) << key;
    EXPECT_THAT(table().entries(), IsEmpty());
}

TEST_F(CoppTest, AColdStartWithScaleFactorsWritesZerosAndOnesInThePipelines) {
    start();
    EXPECT_THAT(takeWrites(), SizeIs(45));
    EXPECT_THAT(wordsOf(0), Each(0));
    for (U32 key = 1; key <= 14; ++key)
        EXPECT_THAT(wordsOf(key), ElementsAre(1, 1, 0)) << key;
    EXPECT_THAT(table().entries(), IsEmpty());
}

TEST_F(CoppWithoutScaleTest, DeletingALimitWritesZerosAndNotTheDefault) {
    start();
    table().entryIs(3, raw(1000));
    takeWrites();
    EXPECT_EQ(table().entryDel(3), raw(1000));
    EXPECT_THAT(takeWrites(), SizeIs(3));
    EXPECT_THAT(wordsOf(3), Each(0));
    EXPECT_EQ(table().entryDel(3), CoppEntry());
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(CoppWithoutScaleTest, ADeletedLimitComesBackAsOneThatLetsNothingThrough) {
    start();
    table().entryIs(3, raw(1000));
    table().entryDel(3);
    takeWrites();
    restart();
    EXPECT_THAT(takeWrites(), SizeIs(3)) << "the entry that came back";
    EXPECT_TRUE(table().entryHas(3));
    EXPECT_EQ(table().entry(3), CoppEntry());
    EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
}

TEST_F(CoppTest, DeletingALimitWithScaleFactorsLeavesAOneInThePipelines) {
    start();
    table().entryIs(3, limit(1000, 2));
    table().entryDel(3);
    EXPECT_THAT(wordsOf(3), ElementsAre(1, 1, 0));
    table().entryIs(0, CoppEntry().intervalIs(1000));
    table().entryDel(0);
    EXPECT_THAT(wordsOf(0), Each(0));
    holdsAcrossRestart([&] { EXPECT_THAT(table().entries(), IsEmpty()); });
}

TEST_F(CoppTest, DeletingAllDeletesEveryKey) {
    start();
    for (U32 const key : {0u, 5u, 14u})
        table().entryIs(key, CoppEntry().intervalIs(5).incrementIs(5));
    takeWrites();
    table().entryDelAll();
    EXPECT_THAT(takeWrites(), SizeIs(9));
    EXPECT_THAT(table().entries(), IsEmpty());
}

TEST_F(CoppTest, AnUnchangedEntryNeitherWritesNorPublishesAndAnyChangeWritesAllTables) {
    start();
    std::vector<U8> published;
    auto const observation = table().publisher().observe("entry", [&](Belmo::Change const& change) {
        published.push_back(change.key.as<CoppEntryKey>()->value());
    });
    table().entryIs(5, limit(100, 1));
    takeWrites();
    table().entryIs(5, limit(100, 1));
    EXPECT_EQ(takeWriteCount(), 0u);
    table().entryIs(5, limit(100, 9));
    EXPECT_THAT(takeWrites(), SizeIs(3)) << "the same words, which are not held against the shadow";
    EXPECT_THAT(published, ElementsAre(5, 5));
}

TEST_F(CoppTest, BeforeTheStartEntriesAreKeptAndTraced) {
    make();
    NerioTest::TraceCapture const trace("NerioTableCopp", 8);
    table().entryIs(5, limit(100, 1));
    EXPECT_THAT(trace.lines(), ElementsAre("Skipped as not yet initialized - key: 5"));
    bringUp(StartMode::cold);
    EXPECT_THAT(takeWrites(), SizeIs(45));
    EXPECT_THAT(wordsOf(5), ElementsAre(66u | 1u << 20, 66u | 1u << 20, 100u | 1u << 20));
    EXPECT_THAT(trace.lines(), SizeIs(1));
}

TEST_F(CoppTest, NothingIsWrittenWhileTheFirstDescriptorIsNotInitialized) {
    start();
    takeWrites();
    convertor().descriptor(0)->initializedIs(false);
    table().entryIs(5, limit(100));
    EXPECT_EQ(takeWriteCount(), 0u);
    convertor().descriptor(0)->initializedIs(true);
    table().handleEntry(5);
    EXPECT_EQ(takeWriteCount(), 3u);
}

TEST_F(CoppTest, EntriesSurviveAWarmRestartThatWritesThemAnew) {
    start();
    table().entryIs(0, CoppEntry().intervalIs(31250));
    table().entryIs(3, limit(0x20000, 7));
    table().entryIs(14, limit(1));
    holdsAcrossRestart(
        [&] {
            EXPECT_THAT(table().entries(), SizeIs(3));
            EXPECT_EQ(table().entry(0), CoppEntry().intervalIs(31250));
            EXPECT_EQ(table().entry(3), limit(0x20000, 7));
            EXPECT_EQ(table().entry(14), limit(1));
            EXPECT_THAT(wordsOf(14), Each(1));
            EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
        },
        9);
}

TEST_F(CoppWithoutScaleTest, EntriesSurviveAWarmRestartThatWritesThemAnew) {
    start();
    table().entryIs(0, raw(31250));
    table().entryIs(3, raw(1000));
    holdsAcrossRestart(
        [&] {
            EXPECT_THAT(table().entries(), SizeIs(2));
            EXPECT_EQ(table().entry(0), raw(31250));
            EXPECT_EQ(table().entry(3), raw(1000));
            EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
        },
        6);
}

TEST_F(CoppWithoutScaleTest, AnEntryOfTheDefaultDoesNotComeBack) {
    start();
    table().entryIs(0, raw(31250000));
    table().entryIs(3, raw(CoppEntry::filterNone));
    table().entryIs(4, raw(31250000));
    takeWrites();
    restart();
    EXPECT_THAT(takeWrites(), SizeIs(3));
    EXPECT_THAT(table().entries(), SizeIs(1));
    EXPECT_EQ(table().entry(4), raw(31250000)) << "the default of key 0 alone";
}

TEST_F(CoppTest, WithScaleFactorsEveryWordButZeroComesBack) {
    start();
    table().entryIs(3, limit(0x3FFFF));
    table().entryIs(4, limit(0, 8));
    table().entryIs(0, CoppEntry().intervalIs(31250000.F));
    restart();
    EXPECT_EQ(table().entry(3), limit(0x3FFFF));
    EXPECT_FALSE(table().entryHas(4));
    EXPECT_EQ(table().entry(0), CoppEntry().intervalIs(31250000));
}

TEST_F(CoppTest, ADifferenceBetweenTheTablesMarksTheKey) {
    start();
    table().entryIs(3, limit(1000));
    table().entryIs(4, limit(2000));
    table().entryIs(5, limit(3000));
    rowIs(1, 3, 661);
    shadow(0).drop(4);
    shadow(1).drop(4);
    takeWrites();
    NerioTest::TraceCapture const trace("NerioTableCopp", 8);
    restart();
    EXPECT_TRUE(table().hwInconsistentEntry(3));
    EXPECT_TRUE(table().hwInconsistentEntry(4));
    EXPECT_THAT(table().hwInconsistentEntries(), SizeIs(2));
    EXPECT_THAT(trace.lines(), testing::Contains("Inconsistent hw table entry for key: 3, table 1"));
    EXPECT_THAT(trace.lines(), testing::Contains("Missing hw table entry for key: 4, table 0"));
    EXPECT_THAT(trace.lines(), testing::Contains("Missing hw table entry for key: 4, table 1"));
    EXPECT_THAT(trace.lines(), testing::Contains("Found cpu tx table hw entry for key: 5"));
    EXPECT_THAT(trace.lines(), testing::Contains("Set sw table entry for key: 5 value: 3000"));
    EXPECT_THAT(takeWrites(), SizeIs(9)) << "what came back is written anew";
    EXPECT_THAT(wordsOf(3), ElementsAre(660, 660, 1000));
    EXPECT_THAT(wordsOf(4), ElementsAre(1320, 1320, 2000));
}

TEST_F(CoppTest, AnIncrementBeyond18BitsComesBackWithoutThemAndMarked) {
    start();
    table().entryIs(3, limit(0x40000 + 1000));
    EXPECT_THAT(wordsOf(3), ElementsAre((0x40000u + 1000) * 66 / 100, (0x40000u + 1000) * 66 / 100, 1000));
    restart();
    EXPECT_EQ(table().entry(3), limit(1000));
    EXPECT_TRUE(table().hwInconsistentEntry(3)) << "a share was taken of all of it";
    EXPECT_THAT(wordsOf(3), ElementsAre(660, 660, 1000));
}

TEST_F(CoppTest, AKeyThatNobodyWantsIsMarkedButStays) {
    start();
    rowIs(0, 3, 660);
    takeWrites();
    restart();
    EXPECT_TRUE(table().hwInconsistentEntry(3));
    EXPECT_FALSE(table().entryHas(3));
    EXPECT_EQ(takeWriteCount(), 0u) << "its row is held";
    EXPECT_THAT(wordsOf(3), ElementsAre(660, 1, 0));
}

TEST_F(CoppTest, ARowMissingBehindTheCpuIsPassedOverAndGetsTheDefaultAlone) {
    start();
    table().entryIs(3, limit(1000));
    shadow(cpuTx).drop(3);
    takeWrites();
    restart();
    EXPECT_FALSE(table().entryHas(3));
    EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("cpu_tx_pipeline[0]/rate_limiter/link_local_limit", 0)));
    EXPECT_THAT(wordsOf(3), ElementsAre(660, 660, 0));
}

TEST_F(CoppTest, ARowMissingInAPipelineIsMarkedAndGetsTheDefaultAlone) {
    start();
    shadow(1).drop(3);
    takeWrites();
    restart();
    EXPECT_TRUE(table().hwInconsistentEntry(3));
    EXPECT_THAT(table().hwInconsistentEntries(), SizeIs(1));
    EXPECT_THAT(table().entries(), IsEmpty());
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("ingress/rate_limiter[1]/link_local_limit", 1)));
}

TEST_F(CoppTest, ACorruptRowCountsAsMissing) {
    start();
    table().entryIs(3, limit(1000));
    table().entryIs(4, limit(1000));
    shadow(cpuTx).corrupt(3);
    shadow(0).corrupt(4);
    restart();
    EXPECT_FALSE(table().entryHas(3));
    EXPECT_TRUE(table().hwInconsistentEntry(4));
    EXPECT_GE(shadow(cpuTx).corruptionsDetected(), 1u);
    EXPECT_THAT(wordsOf(4), ElementsAre(660, 660, 1000));
}

TEST_F(CoppTest, AnotherColdStartForcesTheDefaults) {
    start();
    table().entryIs(3, limit(1000));
    takeWrites();
    restart(StartMode::cold);
    EXPECT_THAT(takeWrites(), SizeIs(45));
    EXPECT_THAT(wordsOf(3), ElementsAre(1, 1, 0));
}

TEST_F(CoppTest, AKeyWithoutARegisterIsKeptAndReachesNone) {
    profile().hwApi = {5, 0};
    start();
    EXPECT_THAT(takeWrites(), SizeIs(3 * 11));
    table().entryIs(5, raw(1000));
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_TRUE(table().entryHas(5));
    EXPECT_THAT(wordsOf(5), ElementsAre(660, 660, 1000)) << "the shadow has it";
    restart();
    EXPECT_EQ(table().entry(5), raw(1000));
}

TEST_F(CoppTest, AWriteThatFailsIsTriedAgainByTheSameCall) {
    start();
    faulty().faultIs(Chip::Fault::fail, faulty().writes() + 2);
    EXPECT_THROW(table().entryIs(3, limit(1000)), NerioSwitchApi::BusException);
    EXPECT_THAT(shadowWords(3, cpuTx), ElementsAre(1000));
    EXPECT_THAT(shadowWords(3, 0), IsEmpty());
    takeWrites();
    table().entryIs(3, limit(1000));
    EXPECT_THAT(takeWrites(), SizeIs(3));
    EXPECT_THAT(wordsOf(3), ElementsAre(660, 660, 1000));
}

TEST_F(CoppTest, DestructionWritesNothing) {
    start();
    table().entryIs(3, limit(1000));
    takeWrites();
    make();
    EXPECT_EQ(takeWriteCount(), 0u);
}

using CoppDeathTest = CoppTest;

TEST_F(CoppDeathTest, AHardwareTableMissingFromTheCollectionIsAnAssertion) {
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

TEST_F(CoppDeathTest, ReadingBackWithoutHardwareTablesIsAnAssertion) {
    make();
    auto const convertor = coppConvertorFactory();
    convertor->profileIs(Belmo::Ptr<NerioSwitch::ProfileInfo const>(&profile()));
    EXPECT_DEATH(convertor->syncEntries(0), "Assertion failed: cpuTxHwTable ");
}

TEST_F(CoppDeathTest, ReadingBackWithoutAPipelinesTableIsAnAssertion) {
    start();
    auto const onlyCpuTx = coppConvertorFactory();
    onlyCpuTx->profileIs(Belmo::Ptr<NerioSwitch::ProfileInfo const>(&profile()));
    onlyCpuTx->swTableIs(table());
    onlyCpuTx->hwTableIs(cpuTx, convertor().hwTable(cpuTx));
    EXPECT_DEATH(onlyCpuTx->syncEntries(0), "Assertion failed: table ");
}

}  // namespace
