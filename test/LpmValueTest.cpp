// What routes are made of, and how cells are encoded.
#include <gtest/gtest.h>
#include <set>

#include "NerioSwitch/LpmKey.h"
#include "Sorn/Text.h"

#include "FailureText.h"
#include "NerioSwitchTable/LpmResult.h"

namespace {

using namespace NerioSwitchTable;
using Belmo::RangeException;
using NerioSwitch::LpmKey;
using NerioSwitch::NexthopIndexes;
using NerioSwitch::ProfileHwApi;

constexpr ProfileHwApi versions[] = {{2, 0}, {5, 0}, {5, 1}, {6, 2}, {8, 9}, {9, 0}, {17, 0}};
/** The longest route of each hash stage. */
constexpr U32 prefixLens[] = {14, 17, 20, 23, 26, 29, 32};

Lanvo::Prefix prefix(U32 address, U8 length) {
    return {Lanvo::IpAddr::fromHostOrder(address), length};
}

EntryCellResult cell(U32 nexthop, U32 first = 33, U32 second = 33, U8 realPrefixLen = 0) {
    return EntryCellResult()
        .nexthopIndexesIs(nexthop)
        .maskLength0Is(first)
        .maskLength1Is(second)
        .realPrefixLenIs(realPrefixLen);
}

TEST(LpmKeyTest, ComparesAndHashesByVrfAddressAndLength) {
    LpmKey const key(1, prefix(0x0A000000, 24));
    EXPECT_EQ(key, LpmKey().vrfIs(1).prefixIs(prefix(0x0A000000, 24)));
    EXPECT_LT(key, LpmKey(2, prefix(0, 24)));
    EXPECT_LT(key, LpmKey(1, prefix(0x0A000100, 24)));
    std::set<U32> hashes;
    for (U8 vrf = 0; vrf < 32; ++vrf) {
        for (U8 length = 8; length <= 32; ++length)
            hashes.insert(LpmKey(vrf, prefix(0x0A000000, length)).hash(0));
    }
    EXPECT_GT(hashes.size(), 32u * 25 - 4);
    EXPECT_NE(key.hash(0), key.hash(1));
    EXPECT_EQ(Sorn::text(key), "NerioSwitch::LpmKey(vrf=1,prefix=10.0.0.0/24)");
}

TEST(LpmKeyTest, HostBitsAreRefused) {
    EXPECT_EQ(failureOf<RangeException>([] { LpmKey(0, prefix(0x0A000001, 24)); }),
              "Lanvo::Prefix::validAsPrefix != true not allowed");
}

TEST(EntryCellResultTest, TheDefaultCellIsNull) {
    EntryCellResult const null;
    EXPECT_EQ(null.nexthopIndexes().value(), 57u);
    EXPECT_FALSE(null.nexthopIndexes().valid());
    EXPECT_EQ(null.maskLength0().value(), 33);
    EXPECT_EQ(null.maskLength1().value(), 33);
    EXPECT_EQ(null.realPrefixLen(), 0);
    EXPECT_EQ(sizeof null, 7u);
    EXPECT_TRUE(NexthopIndexes(0).valid());
    EXPECT_TRUE(NexthopIndexes(58).valid());
    EXPECT_EQ(NexthopIndexes(0xFFFFFFFF).value(), 0xFFFFFFFF);
}

TEST(EntryCellResultTest, NumbersBeyondTheirTypeAreRefused) {
    EXPECT_EQ(MaskLength(33), MaskLength());
    EXPECT_EQ(failureOf<RangeException>([] { MaskLength(34); }),
              "NerioSwitchTable::MaskLength::value < NerioSwitchTable::MaskLength::min or > "
              "NerioSwitchTable::MaskLength::null not allowed");
    EXPECT_EQ(failureOf<RangeException>([] { NexthopIndexes(0x100000000); }),
              "NerioSwitch::NexthopIndexes::value > 0xFFFFFFFF not allowed");
    EXPECT_EQ(failureOf<RangeException>([] { EntryCellIndex(4); }),
              "NerioSwitchTable::EntryCellIndex::value < NerioSwitchTable::EntryCellIndex::min or > "
              "NerioSwitchTable::EntryCellIndex::max not allowed");
}

TEST(EntryCellResultTest, HasATextForPeopleAndOneThatReadsBack) {
    auto const some = cell(5, 24, 33, 24);
    EXPECT_EQ(some.resultString(), "nexthopIndexes: 5  maskLengths: 24 33  realPrefixLen: 24");
    auto const text = Sorn::text(some);
    EXPECT_EQ(
        text,
        "NerioSwitchTable::EntryCellResult(nexthopIndexes=5,maskLength0=24,maskLength1=33,realPrefixLen=24)");
    Sorn::CharRange range(text);
    EXPECT_EQ(EntryCellResult(range), some);
}

TEST(EntryCellResultTest, TheEncodingOfEachStageHasLiteralBits) {
    for (auto const& version : versions) {
        EXPECT_EQ(EntryCellResult().hwEncoding(false, 26, version), 0u);
        EXPECT_EQ(EntryCellResult().hwEncoding(true, 11, version), 0u);
        EXPECT_EQ(cell(0).hwEncoding(false, 26, version), 0x39u);
        EXPECT_EQ(cell(0xFFF).hwEncoding(false, 26, version), 0xFC6u);
        EXPECT_EQ(cell(57, 26, 33).hwEncoding(false, 26, version), 0x1000u);
        EXPECT_EQ(cell(57, 25, 33).hwEncoding(false, 26, version), 0x2000u);
        EXPECT_EQ(cell(57, 24, 33).hwEncoding(false, 26, version), 0x3000u);
        EXPECT_EQ(cell(57, 33, 25).hwEncoding(false, 26, version), 0x8000u);
        EXPECT_EQ(cell(0x7AB ^ 57, 24, 26).hwEncoding(false, 26, version), 0x77ABu);
        EXPECT_EQ(cell(0x7AB ^ 57, 8, 3).hwEncoding(true, 11, version), 0x7ABu);
    }
}

TEST(EntryCellResultTest, TheHashStagesEncodingInvertsOverAllThatItCarries) {
    for (U32 const prefixLen : prefixLens) {
        std::set<U32> encodings;
        for (U32 nexthop = 0; nexthop <= EntryCellResult::maxNexthop; ++nexthop) {
            for (U32 i = 0; i < 16; ++i) {
                U32 const first = i % 4 == 3 ? 33 : prefixLen - i % 4;
                U32 const second = i / 4 == 3 ? 33 : prefixLen - i / 4;
                auto const each = cell(nexthop, first, second, static_cast<U8>(prefixLen - i % 3));
                auto const encoding = each.hwEncoding(false, prefixLen, {6, 2});
                encodings.insert(encoding);
                for (auto const& version : versions) {
                    ASSERT_EQ(each.hwEncoding(false, prefixLen, version), encoding);
                    ASSERT_EQ(EntryCellResult::fromHwEncoding(encoding, prefixLen, false,
                                                              each.realPrefixLen(), version),
                              each);
                }
            }
        }
        EXPECT_EQ(encodings.size(), 0x10000u);
        EXPECT_EQ(*encodings.rbegin(), 0xFFFFu);
    }
}

TEST(EntryCellResultTest, TheDirectStagesEncodingInvertsInTwelveBitsWhateverStandsAbove) {
    for (auto const& version : versions) {
        for (U32 nexthop = 0; nexthop <= EntryCellResult::maxNexthop; ++nexthop) {
            auto const each = cell(nexthop, 33, 33, 11);
            auto const encoding = each.hwEncoding(true, 11, version);
            ASSERT_LE(encoding, 0xFFFu);
            for (U32 const above : {0x0000u, 0x1000u, 0x7000u})
                ASSERT_EQ(EntryCellResult::fromHwEncoding(encoding | above, 11, true, 11, version), each);
        }
    }
}

TEST(EntryCellResultTest, WhatNoRowCanCarryIsRefusedAndNotCut) {
    auto const failure = [](EntryCellResult const& each, bool direct, U32 prefixLen) {
        return failureOf<RangeException>([&] { each.hwEncoding(direct, prefixLen, {6, 2}); });
    };
    for (U32 const nexthop : {0x1000u, 0x1039u, 0x10000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(failure(cell(nexthop), false, 26),
                  "NerioSwitchTable::EntryCellResult::nexthopIndexes > "
                  "NerioSwitchTable::EntryCellResult::maxNexthop not allowed");
        EXPECT_NE(failure(cell(nexthop), true, 11), "");
    }
    for (U32 const length : {0u, 8u, 23u, 27u, 32u}) {
        EXPECT_EQ(failure(cell(5, length, 33), false, 26),
                  "NerioSwitchTable::EntryCellResult::maskLength < prefixLen - 2 or > prefixLen not allowed");
        EXPECT_NE(failure(cell(5, 33, length), false, 26), "");
        EXPECT_EQ(failure(cell(5, length, length), true, 11), "")
            << "rows of the direct stage have own places";
    }
}

TEST(LpmResultTest, HoldsFourNullCellsUntilToldOtherwise) {
    LpmResult result;
    EXPECT_EQ(result.cells().size(), 4u);
    for (U32 i = 0; i < 4; ++i)
        EXPECT_EQ(result.cellResult(i), EntryCellResult());
    EXPECT_FALSE(result.cpuTrap());
    result.cellResultIs(2, cell(5, 24, 33, 24));
    EXPECT_EQ(result.cellResult(2), cell(5, 24, 33, 24));
    EXPECT_EQ(result.cellResult(1), EntryCellResult());
    EXPECT_NE(result, LpmResult());
    EXPECT_NE(result.hash(0), LpmResult().hash(0));
    EXPECT_NE(LpmResult().cpuTrapIs(true).hash(0), LpmResult().hash(0));
    auto const text = Sorn::text(result);
    Sorn::CharRange range(text);
    EXPECT_EQ(LpmResult(range), result);
}

}  // namespace
