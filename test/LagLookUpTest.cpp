#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FailureText.h"
#include "NerioSwitchTable/NerioTableLagLookUp.h"
#include "PackedWords.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::ChipPortId;
using NerioTest::packed;
using NerioTest::RegisterWrites;
using NerioTest::StartMode;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr U32 cpuTable = 2;

LagLookUpKey port(U32 number) {
    return LagLookUpKey(ChipPortId(number));
}

class LagLookUpTest : public NerioTest::TableFixture<LagLookUpTable> {
protected:
    LagLookUpTest() : TableFixture([] { return lagLookUpTableFactory("lags"); }) {}

    void bucketsAre(U32 number, U32 buckets) { table().entryIs(port(number), LagLookUpResult(buckets)); }
    U32 chipBuckets(std::string const& prefix, U32 row) {
        return chip().indirectMemory(prefix + "lagBuckets").row(row)[0];
    }
};

TEST_F(LagLookUpTest, TheTextOfAResultIsAHexadecimalNumber) {
    EXPECT_EQ(LagLookUpKey().portId().value(), 53);
    EXPECT_EQ(LagLookUpResult().buckets(), 0u);
    EXPECT_EQ(LagLookUpResult().resultString(), "0x00");
    EXPECT_EQ(LagLookUpResult(0xAB).resultString(), "0xAB");
    EXPECT_EQ(LagLookUpResult(0xDEADBEEF).resultString(), "0xDEADBEEF");
}

TEST_F(LagLookUpTest, EachPipelineHasACopyOfAllPortsAndTheCpuPipelineOneMore) {
    profile().hasCpuPipeline = false;
    profile().layouts[NerioSwitch::TableLayoutEnum::tableLayoutL2].pipelines = 3;
    start();
    ASSERT_THAT(convertor().descriptors(), SizeIs(4));
    for (U32 id = 0; id < 4; ++id) {
        auto const& descriptor = *convertor().descriptor(id);
        EXPECT_EQ(descriptor.name(), "lags/demo/LagLookUp/" + std::to_string(id));
        EXPECT_EQ(descriptor.firstIndex(), 0u);
        EXPECT_EQ(descriptor.lastIndex(), 51u);
    }
    EXPECT_FALSE(table().hwTablesDuplicate());
    EXPECT_EQ(convertor().hwStaticWord(1), 0xFFFFFFFF);
    convertor().hwStaticWordDel(1);
    convertor().handleInitialized();
    EXPECT_EQ(convertor().hwStaticWord(1), 0xFFFFFFFF);
    EXPECT_EQ(convertor().hwStaticWord(0), 0u);
}

TEST_F(LagLookUpTest, FourPortsShareRegistersAndDifferInTheControlWord) {
    start();
    takeWrites();
    for (U32 number = 0; number < 5; ++number) {
        bucketsAre(number, 0x100 + number);
        RegisterWrites expected;
        for (auto const* pipeline : {"pipeline[0]/", "pipeline[1]/", "cpu_pipeline[0]/"}) {
            auto const prefix = fmt::format("{}lag_lut[{}]/lag_lut_", pipeline, number / 4);
            expected.emplace_back(prefix + "data0", 0x100 + number);
            expected.emplace_back(prefix + "ctl", 1u << number % 4);
        }
        EXPECT_EQ(takeWrites(), expected) << number;
    }
    for (U32 number = 0; number < 4; ++number)
        EXPECT_EQ(chipBuckets("pipeline[1]/lag_lut[0]/", number), 0x100 + number);
    EXPECT_EQ(chipBuckets("cpu_pipeline[0]/lag_lut[1]/", 0), 0x104u);
}

TEST_F(LagLookUpTest, AllPortsShareRegistersFromVersion80On) {
    profile().hwApi = {8, 0};
    start();
    takeWrites();
    bucketsAre(51, 7);
    EXPECT_THAT(takeWrites(),
                ElementsAre(Pair("pipeline[0]/lag_lut_data0", 7), Pair("pipeline[0]/lag_lut_ctl", 51 * 2 + 1),
                            Pair("pipeline[1]/lag_lut_data0", 7), Pair("pipeline[1]/lag_lut_ctl", 51 * 2 + 1),
                            Pair("cpu_pipeline[0]/lag_lut_data0", 7),
                            Pair("cpu_pipeline[0]/lag_lut_ctl", 51 * 2 + 1)));
    EXPECT_EQ(chipBuckets("pipeline[1]/", 51), 7u);
    EXPECT_EQ(chipBuckets("pipeline[1]/", 50), 0u);
}

TEST_F(LagLookUpTest, RegistersOfGroupsLastUpToVersion79) {
    profile().hwApi = {7, 9};
    profile().noMuxInRegName = true;  // of other registers
    start();
    takeWrites();
    bucketsAre(51, 7);
    EXPECT_THAT(takeWrites(), testing::Contains(Pair("pipeline[1]/lag_lut[12]/lag_lut_ctl", 1u << 3)));
}

TEST_F(LagLookUpTest, GoldenRowsOfBothGenerations) {
    start();
    bucketsAre(0, 0xDEADBEEF);
    bucketsAre(51, 0x80000001);
    for (U32 const id : {0u, 1u, cpuTable}) {
        EXPECT_EQ(shadowWords(0, id), packed(2, {{0, 32, 0xDEADBEEF}, {32, 1, 1}}));
        EXPECT_EQ(shadowWords(51, id), packed(2, {{0, 32, 0x80000001}, {35, 1, 1}}));
    }
}

TEST_F(LagLookUpTest, GoldenRowsSinceVersion80) {
    profile().hwApi = {10, 0};
    start();
    bucketsAre(0, 0xDEADBEEF);
    bucketsAre(51, 0x80000001);
    for (U32 const id : {0u, 1u, cpuTable}) {
        EXPECT_EQ(shadowWords(0, id), packed(2, {{0, 32, 0xDEADBEEF}, {32, 1, 1}}));
        EXPECT_EQ(shadowWords(51, id), packed(2, {{0, 32, 0x80000001}, {32, 1, 1}, {33, 8, 51}}));
    }
}

TEST_F(LagLookUpTest, AColdStartWritesTheDefaultToEveryPortOfEveryCopy) {
    start();
    auto const writes = takeWrites();
    ASSERT_THAT(writes, SizeIs(3u * 52 * 2));
    EXPECT_THAT(writes[0], Pair("pipeline[0]/lag_lut[0]/lag_lut_data0", 0));
    EXPECT_THAT(writes[1], Pair("pipeline[0]/lag_lut[0]/lag_lut_ctl", 1));
    EXPECT_THAT(writes.back(), Pair("cpu_pipeline[0]/lag_lut[12]/lag_lut_ctl", 8));
    EXPECT_THAT(shadowWords(17, 1), ElementsAre(0, 2));
}

TEST_F(LagLookUpTest, ChipsOfFewPortsHaveAGroupForTheRest) {
    profile().numPorts = 5;
    profile().ingressPipesAre({{0, 0, 4}});
    start();
    takeWrites();
    bucketsAre(4, 7);
    EXPECT_THAT(takeWrites(), testing::Contains(Pair("cpu_pipeline[0]/lag_lut[1]/lag_lut_ctl", 1)));
    EXPECT_THROW(bucketsAre(5, 7), Belmo::RangeException);
    EXPECT_FALSE(table().entryHas(port(5)));
}

TEST_F(LagLookUpTest, BucketsSurviveARestartWithoutAWrite) {
    start();
    bucketsAre(3, 0xF0);
    bucketsAre(51, 0xDEADBEEF);
    holdsAcrossRestart([&] {
        EXPECT_THAT(table().entries(), SizeIs(2));
        EXPECT_EQ(table().entry(port(3)).buckets(), 0xF0u);
        EXPECT_EQ(table().entry(port(51)).buckets(), 0xDEADBEEFu);
        EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
    });
}

TEST_F(LagLookUpTest, ADeletionWritesTheDefaultAndDoesNotComeBack) {
    start();
    bucketsAre(3, 0xF0);
    takeWrites();
    EXPECT_EQ(table().entryDel(port(3)), LagLookUpResult(0xF0));
    EXPECT_THAT(takeWrites(), SizeIs(6));
    EXPECT_THAT(shadowWords(3, cpuTable), ElementsAre(0, 8));
    EXPECT_EQ(chipBuckets("pipeline[0]/lag_lut[0]/", 3), 0u);
    restart();
    EXPECT_THAT(table().entries(), IsEmpty());
}

TEST_F(LagLookUpTest, ACopyIsWrittenOnlyIfItsBucketsDiffer) {
    start();
    bucketsAre(3, 0xF0);
    shadow(1).store(3, std::vector<U32>{0xF0, 0x55});
    shadow(cpuTable).store(3, std::vector<U32>{0xF1, 8});
    takeWrites();
    table().handleEntry(port(3));
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("cpu_pipeline[0]/lag_lut[0]/lag_lut_data0", 0xF0),
                                          Pair("cpu_pipeline[0]/lag_lut[0]/lag_lut_ctl", 8)))
        << "the control word is no content";
}

TEST_F(LagLookUpTest, TheFirstCopySpeaksForAllAtAWarmStart) {
    start();
    bucketsAre(3, 0xF0);
    shadow(1).store(3, std::vector<U32>{0x0F, 8});
    shadow(cpuTable).drop(3);
    shadow(1).store(4, std::vector<U32>{0x0F, 1});
    takeWrites();
    restart();
    EXPECT_EQ(table().entry(port(3)).buckets(), 0xF0u);
    EXPECT_FALSE(table().entryHas(port(4)));
    EXPECT_THAT(table().hwInconsistentEntries(), IsEmpty());
    EXPECT_THAT(takeWrites(), ElementsAre(Pair("pipeline[1]/lag_lut[0]/lag_lut_data0", 0xF0),
                                          Pair("pipeline[1]/lag_lut[0]/lag_lut_ctl", 8),
                                          Pair("cpu_pipeline[0]/lag_lut[0]/lag_lut_data0", 0xF0),
                                          Pair("cpu_pipeline[0]/lag_lut[0]/lag_lut_ctl", 8),
                                          Pair("pipeline[1]/lag_lut[1]/lag_lut_data0", 0),
                                          Pair("pipeline[1]/lag_lut[1]/lag_lut_ctl", 1)));
}

TEST_F(LagLookUpTest, ARowThatTheFirstCopyLacksIsTracedAndDefaultInAllCopies) {
    start();
    bucketsAre(8, 0xF0);
    shadow(0).drop(8);
    takeWrites();
    NerioTest::TraceCapture const trace("NerioTableLagLookUp", 9);
    restart();
    EXPECT_THAT(trace.lines(), ElementsAre("table 0 index 8 does not exist."));
    EXPECT_FALSE(table().entryHas(port(8)));
    EXPECT_THAT(takeWrites(), SizeIs(6)) << "no copy keeps buckets that the first one does not have";
}

TEST_F(LagLookUpTest, ARowAbovePort53EndsTheStart) {
    profile().numPorts = 60;
    for (auto const mode : {StartMode::cold, StartMode::warm}) {
        EXPECT_EQ(failureOf<Belmo::RangeException>([&] { start(mode); }),
                  "NerioSwitch::ChipPortId::value < NerioSwitch::ChipPortId::min or > "
                  "NerioSwitch::ChipPortId::null not allowed");
    }
}

TEST_F(LagLookUpTest, NothingIsWrittenWhileTheFirstDescriptorIsNotInitialized) {
    start();
    takeWrites();
    convertor().descriptor(0)->initializedIs(false);
    bucketsAre(30, 9);
    EXPECT_EQ(takeWriteCount(), 0u);
    convertor().descriptor(0)->initializedIs(true);
    table().handleEntry(port(30));
    EXPECT_EQ(takeWriteCount(), 6u);
}

}  // namespace
