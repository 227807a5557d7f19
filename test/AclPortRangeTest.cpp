#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AclFixture.h"
#include "FailureText.h"
#include "NerioSwitchTable/NerioTableAclPortRange.h"
#include "PackedWords.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::HwAclRange;
using NerioTest::packed;
using NerioTest::PackedBits;
using NerioTest::StartMode;
using NerioTest::TraceCapture;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr char const* unit = "NerioTableAclPortRange";

/** Both kinds in both places, of row 1. */
AclPortRangeResult fullRow() {
    return AclPortRangeResult(1)
        .windowRangeIs(0, HwAclRange(4, 0x1234, 0xABCD, true))
        .windowRangeIs(1, HwAclRange(5, 0x0F0F, 0xF00F))
        .anchorRangeIs(0, HwAclRange(6, 0, 1023, true))
        .anchorRangeIs(1, HwAclRange(7, 0x8001, 0xFFFF));
}

std::vector<PackedBits> const fullRowBits{
    {0, 16, 0x1234}, {16, 16, 0xABCD}, {32, 1, 1}, {33, 16, 0x0F0F}, {49, 16, 0xF00F}, {65, 1, 0},
    {66, 17, 1024},  {83, 1, 0},       {84, 1, 1}, {85, 17, 0x8001}, {102, 1, 1},      {103, 1, 0}};

/** An expected row: its bits, even parity at bit 104, and the control word. */
std::vector<U32> rowOf(std::vector<PackedBits> bits, U32 row, U32 pipelineBit = 0) {
    U32 ones = 0;
    for (auto const& field : bits)
        ones += static_cast<U32>(__builtin_popcountll(field.value));
    for (auto const& field : std::vector<PackedBits>{
             {104, 1, ones & 1}, {128, 5, row}, {141, 3, 6}, {144, 1, pipelineBit}, {146, 1, 1}})
        bits.push_back(field);
    return packed(5, bits);
}

AclPortRangeKey key(U32 number) {
    return AclPortRangeKey(number);
}

class AclPortRangeTest : public NerioTest::TableFixture<AclPortRangeTable> {
protected:
    AclPortRangeTest() : TableFixture([this] { return aclPortRangeTableFactory("ranges", pipeline_); }) {}

    void pipelineIs(U8 pipeline) { pipeline_ = pipeline; }
    /** Four pipelines on two processors, or two on two. */
    void processorPerPipelineIs(bool single) {
        NerioTest::aclChipIs(profile(), {profile().hwApi.majorVersion(), single});
    }
    std::vector<U32> write(U32 row, AclPortRangeResult const& result) {
        table().entryIs(key(row), result);
        return shadowWords(row);
    }
    /** What a restart makes of these words in a row. */
    AclPortRangeResult readBack(U32 row, std::vector<U32> const& words) {
        shadow().store(row, words);
        restart();
        return table().entry(key(row));
    }
    std::vector<Belmo::String> registers() {
        std::vector<Belmo::String> paths;
        for (auto const handle : convertor().hwTable(0)->registersOf(0))
            paths.push_back(chip().path(handle));
        return paths;
    }

private:
    U8 pipeline_ = 1;
};

TEST_F(AclPortRangeTest, GoldenRowsOfBothPipeModes) {
    start();
    EXPECT_EQ(write(31, fullRow()), rowOf(fullRowBits, 31)) << "no bit for a pipeline of its own processor";
    EXPECT_EQ(write(2, AclPortRangeResult()), rowOf({}, 2));
}

TEST_F(AclPortRangeTest, ASharedProcessorIsToldThePipelinesLowBit) {
    processorPerPipelineIs(false);
    for (U8 const pipeline : {U8{2}, U8{3}}) {
        pipelineIs(pipeline);
        start();
        EXPECT_EQ(write(9, fullRow()), rowOf(fullRowBits, 9, pipeline & 1u));
        EXPECT_THAT(registers(),
                    ElementsAre("ingress/processor_acl[1]/hash_data0", "ingress/processor_acl[1]/hash_data1",
                                "ingress/processor_acl[1]/hash_data2", "ingress/processor_acl[1]/hash_data3",
                                "ingress/processor_acl[1]/hash_ctl"));
        EXPECT_EQ(convertor().descriptor(0)->name(),
                  "ranges/demo/AclPortRange/" + std::to_string(int{pipeline}));
    }
}

TEST_F(AclPortRangeTest, AProcessorPerPipelineNeedsNoCapability) {
    processorPerPipelineIs(true);
    profile().aclPipeModeCapable = false;
    start();
    EXPECT_EQ(registers().back(), "ingress/processor_acl[1]/hash_ctl");
    EXPECT_EQ(write(0, {})[4], 6u << 13 | 1u << 18);
}

TEST_F(AclPortRangeTest, ARowHasFiveWordsOfWhichTheLastIsStatic) {
    start();
    for (U8 word = 0; word < 8; ++word)
        EXPECT_EQ(convertor().hwStaticWord(word), word == 4 ? 0xFFFFFFFFu : 0u);
    convertor().hwStaticWordDel(4);
    convertor().handleInitialized();
    EXPECT_EQ(convertor().hwStaticWord(4), 0xFFFFFFFFu) << "declared again";
    EXPECT_EQ(convertor().readStrobeBit(), 17);
    EXPECT_EQ(convertor().writeStrobeBit(), 18);
    EXPECT_EQ(convertor().descriptor(0)->firstIndex(), 0u);
    EXPECT_EQ(convertor().descriptor(0)->lastIndex(), 31u);
    EXPECT_THAT(shadowWords(0), SizeIs(5));
    EXPECT_EQ(table().pipeline(), 1);
}

TEST_F(AclPortRangeTest, AColdStartGivesEveryRowItsControlWord) {
    start();
    auto const writes = takeWrites();
    ASSERT_THAT(writes, SizeIs(32 * 5));
    for (U32 row = 0; row < 32; ++row) {
        EXPECT_EQ(shadowWords(row), rowOf({}, row));
        EXPECT_THAT(writes[5 * row + 4],
                    Pair("ingress/processor_acl[1]/hash_ctl", row | 6u << 13 | 1u << 18));
    }
    EXPECT_TRUE(table().entries().empty());
}

/** An anchor's value, mark, and what comes back of it. */
struct Anchor {
    U16 min;
    U16 max;
    U32 value;
    bool upward;
    U16 minBack;
};

TEST_F(AclPortRangeTest, AnchorsAreTiedToOneEndOfThePorts) {
    for (auto const& anchor : {Anchor{0, 1023, 1024, false, 0}, Anchor{1024, 65535, 1024, true, 1024},
                               Anchor{0, 65535, 0, true, 0}, Anchor{0, 0, 1, false, 0},
                               Anchor{0, 65534, 65535, false, 0}, Anchor{65535, 65535, 65535, true, 65535}}) {
        SCOPED_TRACE(std::to_string(anchor.min) + " to " + std::to_string(anchor.max));
        for (U8 const index : {U8{0}, U8{1}}) {
            start();
            std::size_t const first = index == 0 ? 66 : 85;
            auto const result =
                AclPortRangeResult().anchorRangeIs(index, HwAclRange(2 + index, anchor.min, anchor.max));
            EXPECT_EQ(write(6, result),
                      rowOf({{first, 17, anchor.value}, {first + 17, 1, anchor.upward}}, 6));
            restart();
            EXPECT_EQ(table().entry(key(6)), result);
        }
    }
}

TEST_F(AclPortRangeTest, AnAnchorWithTwoEndsLosesTheLowerOne) {
    start();
    auto const result = AclPortRangeResult().anchorRangeIs(0, HwAclRange(2, 5, 100, true));
    EXPECT_EQ(write(6, result), rowOf({{66, 17, 101}, {84, 1, 1}}, 6));
    restart();
    EXPECT_EQ(table().entry(key(6)).anchorRange(0), HwAclRange(2, 0, 100, true));
    EXPECT_TRUE(table().hwInconsistentEntries().empty());
}

TEST_F(AclPortRangeTest, AnAnchorValueOfSeventeenOnesComesBackCut) {
    start();
    EXPECT_EQ(readBack(6, rowOf({{66, 17, 0x10000}, {83, 1, 1}}, 6)).anchorRange(0),
              HwAclRange(2, 0, 0xFFFF));
    EXPECT_EQ(readBack(6, rowOf({{66, 17, 0x10000}}, 6)).anchorRange(0), HwAclRange(2, 0, 0xFFFF));
}

TEST_F(AclPortRangeTest, AWindowWithOneEndOfZeroComesBackAndCountsAsInconsistent) {
    start();
    write(3, AclPortRangeResult(1).windowRangeIs(1, HwAclRange(5, 0, 100)));
    write(4, AclPortRangeResult().windowRangeIs(0, HwAclRange(0, 100, 0)));
    write(5, AclPortRangeResult(1).windowRangeIs(0, HwAclRange(4, 1, 100)));
    EXPECT_TRUE(table().hwInconsistentEntries().empty()) << "it is written as it stands";
    EXPECT_EQ(shadowWords(3), rowOf({{49, 16, 100}}, 3));
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entry(key(3)).windowRange(1), HwAclRange(5, 0, 100));
    EXPECT_EQ(table().entry(key(4)).windowRange(0), HwAclRange(0, 100, 0));
    EXPECT_TRUE(table().hwInconsistentEntry(key(3)));
    EXPECT_TRUE(table().hwInconsistentEntry(key(4)));
    EXPECT_FALSE(table().hwInconsistentEntry(key(5)));
}

TEST_F(AclPortRangeTest, AWindowOfPortZeroIsWrittenWithItsFlagAndDoesNotComeBack) {
    start();
    EXPECT_EQ(write(8, AclPortRangeResult().windowRangeIs(0, HwAclRange(0, 0, 0, true))),
              rowOf({{32, 1, 1}}, 8));
    takeWrites();
    restart();
    EXPECT_FALSE(table().entryHas(key(8)));
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(shadowWords(8), rowOf({{32, 1, 1}}, 8)) << "the row stays";
}

TEST_F(AclPortRangeTest, EntriesSurviveARestartWithoutAWrite) {
    start();
    table().entryIs(key(31), fullRow());
    table().entryIs(key(0), AclPortRangeResult().windowRangeIs(1, HwAclRange(1, 80, 443, true)));
    holdsAcrossRestart([&] {
        EXPECT_THAT(table().entries(), SizeIs(2));
        EXPECT_EQ(table().entry(key(31)), fullRow());
        EXPECT_EQ(table().entry(key(0)).windowRange(1), HwAclRange(1, 80, 443, true));
        EXPECT_TRUE(table().hwInconsistentEntries().empty());
    });
}

TEST_F(AclPortRangeTest, TheKeyGivesARowItsPlaceAndWhatComesBackItsNumbers) {
    start();
    auto const ofRowZero = AclPortRangeResult().windowRangeIs(0, HwAclRange(0, 1, 2));
    EXPECT_EQ(write(7, ofRowZero), rowOf({{0, 16, 1}, {16, 16, 2}}, 7))
        << "the row of the result is not asked";
    table().entryIs(key(9), AclPortRangeResult(1));
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entry(key(7)), AclPortRangeResult(1).windowRangeIs(0, HwAclRange(4, 1, 2)));
    EXPECT_FALSE(table().entryHas(key(9))) << "without a range nothing comes back";
}

TEST_F(AclPortRangeTest, AnUnchangedRowIsNotWrittenAgain) {
    start();
    table().entryIs(key(31), fullRow());
    takeWrites();
    table().entryIs(key(31), fullRow());
    table().handleEntry(key(31));
    EXPECT_EQ(takeWriteCount(), 0u);
    table().entryIs(key(31), AclPortRangeResult(1));
    EXPECT_EQ(takeWriteCount(), 5u);
    table().entryIs(key(31), AclPortRangeResult());
    EXPECT_EQ(takeWriteCount(), 0u) << "only the row of the result differs, which hardware does not hold";
}

TEST_F(AclPortRangeTest, TheCompareCoversTheControlWord) {
    start();
    auto words = rowOf({}, 8);
    words[4] |= 1u << 17;
    shadow().store(8, words);
    takeWrites();
    table().handleEntry(key(8));
    EXPECT_EQ(takeWriteCount(), 5u);
    EXPECT_EQ(shadowWords(8), rowOf({}, 8));
}

TEST_F(AclPortRangeTest, DeletingWritesAnEmptyRow) {
    start();
    table().entryIs(key(31), fullRow());
    takeWrites();
    EXPECT_EQ(table().entryDel(key(31)), fullRow());
    EXPECT_EQ(takeWriteCount(), 5u);
    EXPECT_EQ(shadowWords(31), rowOf({}, 31));
    EXPECT_EQ(table().entryDel(key(31)), AclPortRangeResult());
    table().entryIs(key(0), fullRow());
    table().entryIs(key(1), fullRow());
    table().entryDelAll();
    EXPECT_EQ(takeWriteCount(), 20u);
}

TEST_F(AclPortRangeTest, EntriesBeforeTheStartAreWrittenByIt) {
    make();
    table().entryIs(key(31), fullRow());
    bringUp(StartMode::cold);
    EXPECT_EQ(takeWriteCount(), 160u);
    EXPECT_EQ(shadowWords(31), rowOf(fullRowBits, 31));
}

TEST_F(AclPortRangeTest, AWarmStartKeepsRowsThatAResetEmpties) {
    start();
    auto const stray = rowOf({{32, 1, 1}, {84, 1, 1}}, 8);  // flags of ranges that are not there
    shadow().store(8, stray);
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(shadowWords(8), stray);
    restart(StartMode::cold);
    EXPECT_EQ(takeWriteCount(), 160u);
    EXPECT_EQ(shadowWords(8), rowOf({}, 8));
}

TEST_F(AclPortRangeTest, AMissingOrCorruptRowIsTracedAndGetsAnEmptyOne) {
    start();
    table().entryIs(key(8), AclPortRangeResult().windowRangeIs(0, HwAclRange(0, 1, 2)));
    shadow().drop(8);
    shadow().corrupt(9);
    takeWrites();
    TraceCapture const trace(unit, 9);
    restart();
    EXPECT_THAT(trace.lines(),
                ElementsAre("pipe 1 index 8 does not exist.", "pipe 1 index 9 does not exist."));
    EXPECT_EQ(takeWriteCount(), 10u);
    EXPECT_FALSE(table().entryHas(key(8)));
}

TEST_F(AclPortRangeTest, SettingARowIsTraced) {
    make();
    TraceCapture const trace(unit, 9);
    table().entryIs(key(27), fullRow());
    EXPECT_THAT(trace.lines(), IsEmpty()) << "nothing is set before the start";
    bringUp(StartMode::cold);
    table().entryDel(key(27));
    EXPECT_THAT(trace.lines(), ElementsAre("Set hwTableEntry key: (13, 1)"));
}

TEST_F(AclPortRangeTest, OldHardwareHasNoTableAndKeepsEntriesInSoftware) {
    profile().hwApi = {3, 9};
    TraceCapture const trace(unit, 0);
    for (auto const mode : {StartMode::cold, StartMode::warm}) {
        start(mode);
        EXPECT_TRUE(table().initialized());
        EXPECT_TRUE(convertor().hwTables().empty());
        table().entryIs(key(31), fullRow());
        table().entryDel(key(0));
        EXPECT_EQ(table().entry(key(31)), fullRow());
        EXPECT_EQ(takeWriteCount(), 0u);
    }
    EXPECT_THAT(trace.lines(),
                ElementsAre("No ACL range support in hwApi 3.9", "No ACL range support in hwApi 3.9"));
}

TEST_F(AclPortRangeTest, HardwareOfVersionFourHasATable) {
    profile().hwApi = {4, 0};
    TraceCapture const trace(unit, 0);
    start();
    EXPECT_EQ(convertor().hwTables().size(), 1u);
    EXPECT_THAT(trace.lines(), IsEmpty());
}

TEST_F(AclPortRangeTest, TheInvalidKeyHasNoRow) {
    start();
    takeWrites();
    EXPECT_THROW(table().entryIs(AclPortRangeKey(), fullRow()), Belmo::RangeException);
    EXPECT_TRUE(table().entries().empty());
    EXPECT_EQ(takeWriteCount(), 0u);
}

TEST_F(AclPortRangeTest, NothingIsWrittenWhileTheDescriptorIsNotInitialized) {
    start();
    takeWrites();
    convertor().descriptor(0)->initializedIs(false);
    table().entryIs(key(3), fullRow());
    EXPECT_EQ(takeWriteCount(), 0u);
}

constexpr char const* badKey =
    "NerioSwitchTable::AclPortRangeKey::value < 0 or > NerioSwitchTable::AclPortRangeKey::invalid not "
    "allowed";

TEST(AclPortRangeKeyTest, AKeyIsTwiceTheAclAndTheRow) {
    EXPECT_EQ(AclPortRangeKey::fromAclIdAndRow(15, 1), AclPortRangeKey(31));
    EXPECT_EQ(AclPortRangeKey::fromAclIdAndRow(6, 0), AclPortRangeKey(12));
    EXPECT_EQ(AclPortRangeKey(31).aclId(), 15);
    EXPECT_EQ(AclPortRangeKey(31).row(), 1);
    EXPECT_EQ(AclPortRangeKey::fromAclIdAndRow(16, 0), AclPortRangeKey()) << "which is the invalid one";
    EXPECT_EQ(AclPortRangeKey().value().value(), 32);
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { AclPortRangeKey::fromAclIdAndRow(16, 1); }), badKey);
    EXPECT_EQ(
        failureOf<Belmo::RangeException>([] { AclPortRangeKey::fromAclIdAndRow(17, 0); }),
        "NerioSwitch::HwAclId::value < NerioSwitch::HwAclId::min or > NerioSwitch::HwAclId::invalid not "
        "allowed");
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { AclPortRangeKey{33}; }), badKey);
    EXPECT_EQ(Sorn::text(AclPortRangeKey(7)), "NerioSwitchTable::AclPortRangeKey(value=7)");
}

TEST(AclPortRangeValueTest, IndexAndRowAreZeroOrOne) {
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { AclPortRangeIndex{2}; }),
              "NerioSwitchTable::AclPortRangeIndex::value < NerioSwitchTable::AclPortRangeIndex::min or > "
              "NerioSwitchTable::AclPortRangeIndex::max not allowed");
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { AclPortRangeResult{2}; }),
              "NerioSwitchTable::AclPortRangeResult::row < 0 or > 1 not allowed");
    EXPECT_EQ(failureOf<Belmo::RangeException>([] { HwAclRange(9, 0, 0); }),
              "NerioSwitch::HwAclRangeId::value < NerioSwitch::HwAclRangeId::min or > "
              "NerioSwitch::HwAclRangeId::invalid not allowed");
    EXPECT_EQ(HwAclRange().id().value(), 8);
}

TEST(AclPortRangeValueTest, RangesAreSetReadAndDeletedByIndex) {
    auto result = fullRow();
    EXPECT_EQ(result.windowRange(1), HwAclRange(5, 0x0F0F, 0xF00F));
    EXPECT_EQ(result.anchorRange(0), HwAclRange(6, 0, 1023, true));
    EXPECT_EQ(result.windowRangeDel(1).windowRange(1), std::nullopt);
    EXPECT_EQ(result.anchorRangeDel(0).anchorRange(0), std::nullopt);
    EXPECT_FALSE(result.windowRangeDelAll().isEmpty());
    EXPECT_TRUE(result.anchorRangeDelAll().isEmpty());
    EXPECT_TRUE(static_cast<bool>(result)) << "its row is not the default one";
    EXPECT_FALSE(static_cast<bool>(AclPortRangeResult()));
    EXPECT_TRUE(static_cast<bool>(AclPortRangeResult().windowRangeIs(0, HwAclRange())));
}

TEST(AclPortRangeValueTest, ARangesNumberIsItsPlace) {
    TraceCapture const trace(unit, 0);
    for (U8 id = 0; id < 8; ++id) {
        HwAclRange const range(id, 1, 2);
        AclPortRangeResult result(id / 4);
        result.addRange(range);
        EXPECT_EQ((id & 2) != 0 ? result.anchorRange(id % 2) : result.windowRange(id % 2), range);
        EXPECT_EQ(result.windowRange().size() + result.anchorRange().size(), 1u);
    }
    EXPECT_THAT(trace.lines(), IsEmpty());
}

TEST(AclPortRangeValueTest, WhatHasNoPlaceIsReportedAndStoredAllTheSame) {
    TraceCapture const trace(unit, 0);
    AclPortRangeResult result;
    result.addRange(HwAclRange(6, 1, 2));
    EXPECT_EQ(result.anchorRange(0), HwAclRange(6, 1, 2));
    result.addRange(HwAclRange(2, 3, 4));
    EXPECT_EQ(result.anchorRange(0), HwAclRange(2, 3, 4));
    result.addRange(HwAclRange(8, 5, 6));
    EXPECT_EQ(result.windowRange(0), HwAclRange(8, 5, 6));
    result.addRange(HwAclRange(0, 0, 7));
    result.addRange(HwAclRange(1, 0, 0)).addRange(HwAclRange(1, 8, 9));
    AclPortRangeResult(1).addRange(HwAclRange(3, 1, 2));
    EXPECT_THAT(trace.lines(),
                ElementsAre("aclRange row does not match: 1 != 0", "anchorRange with id 2 already allocated",
                            "Invalid aclRangeId", "windowRange with id 0 already allocated",
                            "aclRange row does not match: 0 != 1"));
}

TEST(AclPortRangeValueTest, AResultShowsEachPlace) {
    auto const result = AclPortRangeResult(1)
                            .windowRangeIs(0, HwAclRange(4, 5, 80))
                            .anchorRangeIs(0, HwAclRange(6, 1024, 65535))
                            .anchorRangeIs(1, HwAclRange(7, 0, 1023));
    EXPECT_EQ(result.resultString(),
              "AclPortRangeResult( row1\n"
              "   window0:  ( 5, 80),\n"
              "   window1: empty,\n"
              "   anchor0:  (1024, max),\n"
              "   anchor1:  ( 0, 1023),\n"
              " )");
    auto const window = AclPortRangeResult().windowRangeIs(1, HwAclRange(1, 1, 65535));
    EXPECT_THAT(window.resultString(), testing::HasSubstr("   window1:  ( 1, 65535),\n"));
}

TEST(AclPortRangeValueTest, AResultIsNotReadFromAText) {
    Sorn::CharRange range("anything");
    EXPECT_DEATH(AclPortRangeResult{range},
                 R"("No String constructor for AclPortRangeResult - has collection" == nullptr)");
}

}  // namespace
