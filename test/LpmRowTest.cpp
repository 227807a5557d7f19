// The rows of the hashing stages, from literal positions, for every stage, VRF count and version.
#include <bit>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FailureText.h"
#include "LpmFixture.h"
#include "TraceCapture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::LpmKey;
using NerioSwitch::ProfileHwApi;
using NerioTest::packed;
using NerioTest::routeCell;
using testing::StartsWith;

constexpr U32 vrfCounts[] = {4, 8, 32};
constexpr ProfileHwApi versions[] = {{5, 0}, {5, 1}, {8, 9}, {9, 0}};

class LpmRowTest : public NerioTest::LpmStageTest {
protected:
    static std::vector<U32> wordsOf(Words const& words) { return {words.begin(), words.end()}; }

    /** The row of `fourCells` under a key, with parity from the ones of words 0 to 2. */
    std::vector<U32> expected(U32 vrf, U32 address, bool valid, U32 rowNumber, U32 way) {
        U32 const b = validBit();
        U32 const base = stage().baseLen;
        Bits bits = {{0, stage().stored, address >> (32 - stage().stored)},
                     {stage().stored, vrfBits(), vrf},
                     {b, 1, valid ? 1u : 0u},
                     {b + 1, 14, (0x0A5 ^ 57) | 3u << 12},   // the mask of base length is 3
                     {b + 15, 14, 0xFC6},                    // 0xFFF ^ 57
                     {b + 29, 14, 0},                        // the null cell
                     {b + 43, 14, (0x05A ^ 57) | 2u << 12},  // one longer is 2
                     {b + 57, 1, 1},
                     {b + 61, 2, 1},  // second mask of cell 1, two longer: 1
                     {b + 65, 2, 3},  // and of cell 3, base length: 3
                     {160, 32, address},
                     {192, 6, base},
                     {198, 6, base + 1},
                     {204, 6, base + 2},
                     {210, 6, base + 2},
                     {128, 12, rowNumber},
                     {142, 2, way},
                     {145, 1, 1},
                     {146, 4, stage().number}};
        auto const clear = packed(8, bits);
        int ones = 0;
        for (std::size_t i = 0; i < 3; ++i)
            ones += std::popcount(clear[i]);
        bits.push_back({b + 58, 1, static_cast<U64>(ones % 2)});
        return packed(8, bits);
    }
};

INSTANTIATE_TEST_SUITE_P(, LpmRowTest, testing::ValuesIn(NerioTest::stageCases), NerioTest::stageName);

TEST_P(LpmRowTest, HoldsKeyCellsAndParityAtTheirPlacesOnEveryChip) {
    U32 const address = 0xB6D3A7C5u & Lanvo::Prefix::mask(static_cast<U8>(stage().baseLen));
    for (U32 const numVrfs : vrfCounts) {
        for (auto const& version : versions) {
            profile().numVrfs = numVrfs;
            profile().hwApi = version;
            start();
            for (U32 const vrf : {0u, numVrfs - 1, numVrfs / 2}) {
                SCOPED_TRACE(vrf);
                auto const wanted = key(static_cast<U8>(vrf), address);
                EXPECT_EQ(wordsOf(row(wanted, fourCells(), true, {stage().rowsPerWay - 1, 1})),
                          expected(vrf, address, true, stage().rowsPerWay - 1, 1));
                EXPECT_EQ(wordsOf(row(wanted, fourCells(), false, {5, 0})),
                          expected(vrf, address, false, 5, 0));
            }
        }
    }
}

TEST_P(LpmRowTest, KeepsTheLowBitsOfAVrfThatTheChipDoesNotHave) {
    profile().numVrfs = 4;
    start();
    auto const cut = row(key(0xFD, 0x0A000000), fourCells());
    auto const whole = row(key(1, 0x0A000000), fourCells());
    EXPECT_EQ(cut, whole);
    auto const hashOf = [&](U8 vrf) {
        return table().createHashEntry(key(vrf, 0x0A000000), false)->getHash(0);
    };
    EXPECT_NE(hashOf(0x1D), hashOf(1)) << "the hash takes all that fits its width";
}

TEST_P(LpmRowTest, LeavesTheControlWordsOtherBitsAsTheyAre) {
    start();
    Words before{};
    before[4] = 0xFFFFFFFF;
    helper().setStaticBuffer({0, 0}, reinterpret_cast<U8*>(before.data()));
    auto const expected = packed(8, {{128 + 12, 2, 3},
                                     {128 + 16, 1, 1},
                                     {128 + 17, 1, 1},
                                     {128 + 18, 4, stage().number},
                                     {128 + 22, 10, 0x3FF}});
    EXPECT_EQ(wordsOf(before), expected);
}

TEST_P(LpmRowTest, TheEmptyRowIsZeroButForTheBaseLengthOfItsCells) {
    for (U32 const numVrfs : vrfCounts) {
        profile().numVrfs = numVrfs;
        start(NerioTest::StartMode::cold);
        auto const null = Belmo::ptrCast<LpmBaseTableCuckooEntry>(helper().nullHashEntry());
        EXPECT_EQ(null->key(), LpmKey());
        EXPECT_FALSE(null->valid());
        EXPECT_FALSE(null->result().cpuTrap());
        for (U32 i = 0; i < 4; ++i)
            EXPECT_EQ(null->result().cellResult(i), routeCell(57, stage().baseLen));
        EXPECT_EQ(table().cachedItems(), 0u);
        U32 const base = stage().baseLen;
        U32 const lastRow = stage().rowsPerWay - 1;
        EXPECT_EQ(shadowWords(stage().rowsPerWay + lastRow), packed(7, {{128, 12, lastRow},
                                                                        {142, 2, 1},
                                                                        {145, 1, 1},
                                                                        {146, 4, stage().number},
                                                                        {192, 6, base},
                                                                        {198, 6, base},
                                                                        {204, 6, base},
                                                                        {210, 6, base}}));
    }
}

TEST_P(LpmRowTest, ReadsBackWhatWasWritten) {
    std::mt19937_64 random(stage().number);
    for (U32 const numVrfs : vrfCounts) {
        for (auto const& version : versions) {
            profile().numVrfs = numVrfs;
            profile().hwApi = version;
            start();
            for (int i = 0; i < 300; ++i) {
                auto const wanted = key(static_cast<U8>(random() % numVrfs), static_cast<U32>(random()));
                auto const result = randomResult(random);
                store(7, row(wanted, result));
                auto const item = decoded(7);
                ASSERT_TRUE(item->valid());
                ASSERT_EQ(item->key(), wanted);
                ASSERT_EQ(Sorn::text(item->result()), Sorn::text(result));
                ASSERT_EQ(table().cachedItem(wanted), item);
                ASSERT_FALSE(table().hwInconsistentEntry(wanted));
                table().cachedItemDel(wanted);
            }
        }
    }
}

TEST_P(LpmRowTest, ANullNexthopMayHaveAnyLengthOfWhichSixBitsAreKept) {
    start();
    auto const result = LpmResult().cellResultIs(1, routeCell(57, 200)).cellResultIs(2, routeCell(57, 0));
    store(3, row(key(0, 0x0A000000), result));
    EXPECT_EQ(decoded(3)->result().cellResult(1), routeCell(57, 200 & 63));
    EXPECT_EQ(decoded(3)->result().cellResult(2), routeCell(57, 0));
}

TEST_P(LpmRowTest, MoreBitsOfTheLengthsAreReadThanWrittenAndNoneOfThemCounts) {
    start();
    auto words = row(key(0, 0x0A000000), fourCells());
    words[6] |= 0xFF000000;
    store(3, words);
    EXPECT_EQ(decoded(3)->result(), fourCells());
}

TEST_P(LpmRowTest, AnEmptyRowDecodesToTheZeroKeyAndTouchesNoItem) {
    start();
    auto const zero = key(0, 0);
    table().entryIs(zero, fourCells());
    auto const real = table().cachedItem(zero);
    auto const index = real->hwIndex() == 9 ? 10u : 9u;
    auto const item = decoded(index);
    EXPECT_NE(item, real);
    EXPECT_EQ(item->key(), zero);
    EXPECT_FALSE(item->valid());
    EXPECT_TRUE(real->valid());
    EXPECT_EQ(real->result(), fourCells());
    table().hashItemDelFromHashItem(item);
    EXPECT_EQ(table().cachedItem(zero), real);
    EXPECT_FALSE(table().hwInconsistentEntry(zero));
}

TEST_P(LpmRowTest, AddressBitsBeyondTheKeyAreRefused) {
    start();
    auto words = row(key(0, 0x0A000000), fourCells());
    words[5] |= 1;
    store(3, words);
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { decoded(3); }),
              "Lanvo::Prefix::validAsPrefix != true not allowed");
}

TEST_P(LpmRowTest, AStoredAddressThatContradictsTheWholeOneMarksTheKey) {
    start();
    auto const wanted = key(1, 0x8A000000);
    auto words = row(wanted, fourCells());
    words[0] ^= 1;
    store(3, words);
    auto const item = decoded(3);
    ASSERT_NE(item, nullptr);
    EXPECT_TRUE(item->valid());
    EXPECT_EQ(item->key(), wanted);
    EXPECT_EQ(item->result(), fourCells());
    EXPECT_TRUE(table().hwInconsistentEntry(wanted));
}

TEST_P(LpmRowTest, ADifferenceOfTheCopiesInAnyWordMarksTheKey) {
    start();
    auto const wanted = key(1, 0x8A000000);
    for (std::size_t word = 0; word < 7; ++word) {
        SCOPED_TRACE(word);
        auto words = row(wanted, fourCells());
        store(3, words);
        decoded(3);
        EXPECT_FALSE(table().hwInconsistentEntry(wanted));
        words[word] ^= 0x80000000;
        shadow(1).store(3, std::span(words).first<7>());
        EXPECT_TRUE(decoded(3)->valid());
        EXPECT_TRUE(table().hwInconsistentEntry(wanted));
        table().hwInconsistentEntryDelAll();
    }
}

TEST_P(LpmRowTest, CopiesOfAnEmptyRowAreComparedToo) {
    start();
    auto words = row(LpmKey(), LpmResult(), false);
    store(3, words);
    decoded(3);
    EXPECT_FALSE(table().hwInconsistentEntry(key(0, 0)));
    words[3] = 1;
    shadow(1).store(3, std::span(words).first<7>());
    EXPECT_FALSE(decoded(3)->valid());
    EXPECT_TRUE(table().hwInconsistentEntry(key(0, 0)));
    EXPECT_FALSE(table().entryHas(key(0, 0)));
}

TEST_P(LpmRowTest, OnlyTheStageOfMulticastTellsOwnersApart) {
    for (U32 const numVrfs : vrfCounts) {
        profile().numVrfs = numVrfs;
        start();
        bool const shared = stage().number == 1;
        EXPECT_EQ(helper().sharesTable(), shared);
        EXPECT_EQ(helper().physTableIndex(), stage().tableIndex);
        auto words = row(key(static_cast<U8>(numVrfs - 1), 0xFFFFFFFF), fourCells());
        store(3, words);
        EXPECT_TRUE(helper().entryOwned(3));
        store(3, row(key(0, 0), fourCells(), false));
        EXPECT_EQ(helper().entryOwned(3), !shared) << "a row that is not valid";
        words[0] |= 1u << 28;
        store(3, words);
        EXPECT_EQ(helper().entryOwned(3), !shared) << "a row of multicast";
    }
}

TEST_P(LpmRowTest, DecodedEntriesAreTracedIfTheyAreValid) {
    start();
    store(3, row(key(0, 0x0A000000), fourCells()));
    NerioTest::TraceCapture const trace("NerioTableLpmBase", 7);
    decoded(3);
    decoded(4);
    ASSERT_EQ(trace.lines().size(), 1u);
    EXPECT_THAT(trace.lines().front(), StartsWith("Decoded valid entry is LpmBaseTableCuckooEntry( "));
}

using LpmRowDeathTest = LpmRowTest;

INSTANTIATE_TEST_SUITE_P(, LpmRowDeathTest, testing::ValuesIn(NerioTest::stageCases), NerioTest::stageName);

TEST_P(LpmRowDeathTest, ACellOfALengthOutsideTheStageIsAProgrammingError) {
    start();
    auto const encode = [&](U32 length) {
        row(key(0, 0x0A000000), LpmResult().cellResultIs(3, routeCell(5, length)));
    };
    EXPECT_DEATH(encode(stage().baseLen - 1), "realPrefixLen >= prefixLen");
    EXPECT_DEATH(encode(stage().baseLen + 3), "realPrefixLen <= prefixLen \\+ prefixRange");
    auto const decode = [&](U32 length) {
        auto words = row(key(0, 0x0A000000), fourCells());
        words[6] = (words[6] & ~0x3Fu) | length;
        store(3, words);
        decoded(3);
    };
    EXPECT_DEATH(decode(stage().baseLen - 1), "realPrefixLen >= prefixLen");
    EXPECT_DEATH(decode(stage().baseLen + 3), "realPrefixLen <= prefixLen \\+ prefixRange");
}

TEST_P(LpmRowDeathTest, ARowOfMulticastIsNoneOfTheSharedStages) {
    if (stage().number != 1) {
        start();
        EXPECT_FALSE(helper().sharesTable());
        return;
    }
    start();
    auto words = row(key(0, 0), fourCells());
    words[0] |= 1u << 28;
    store(3, words);
    EXPECT_DEATH(decoded(3), "!valid \\|\\| !multicast");
    words[0] &= ~(1u << 29);
    store(3, words);
    EXPECT_FALSE(decoded(3)->valid());
}

}  // namespace
