#include <bit>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AclFixture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::AclHashKey;
using NerioSwitch::AclHashResult;
using NerioTest::bitsOf;
using NerioTest::packed;
using NerioTest::PackedBits;
using NerioTest::prefixOf;
using NerioTest::resultOf;
using NerioTest::ruleOf;

using Bits = std::vector<PackedBits>;

/** Where the result begins and the key ends, for one physical table and one kind of chip. */
struct Place {
    U8 physTableIdx;
    U16 firstVersion;
    U16 lastVersion;
    bool single;
    /** Bits of the key. */
    U32 length;
    /** First bit behind the stored key. */
    U32 behindKey;
};

constexpr Place places[] = {
    {0, 2, 2, true, 59, 47}, {0, 2, 2, false, 59, 48}, {0, 3, 99, true, 61, 49}, {0, 3, 99, false, 61, 50},
    {1, 2, 2, true, 58, 46}, {1, 2, 2, false, 58, 47}, {1, 3, 99, true, 60, 48}, {1, 3, 99, false, 60, 49},
    {2, 2, 2, true, 90, 78}, {2, 2, 2, false, 90, 79}, {2, 3, 99, true, 94, 82}, {2, 3, 99, false, 94, 83},
    {5, 2, 2, true, 70, 58}, {5, 2, 2, false, 70, 59}, {5, 3, 99, true, 74, 62}, {5, 3, 99, false, 74, 63},
};

/** A key of each physical table, with bits set in every field, and how it is packed. */
AclHashKey keyOf(U8 physTableIdx) {
    AclHashKey const key = AclHashKey()
                               .portIs(0xB0A5)
                               .firstPrefixIs(prefixOf({10, 201, 3, 0}, 24))
                               .secondPrefixIs(prefixOf({192, 0, 2, 171}, 32))
                               .aclIdIs(11)
                               .protocolIs(13)
                               .vrfIdIs(5)
                               .keyFlagIs(true);
    U32 const combinations[] = {5, 9, 13, 0, 0, 16};
    return AclHashKey(key).combinationIs(combinations[physTableIdx]);
}

std::vector<U32> packedKeyOf(U8 physTableIdx, bool masked) {
    U64 const first = masked ? 0x0AC90300 | 24 : 0x0AC90300;
    U64 const firstMask = masked ? 3 : 0;
    switch (physTableIdx) {
        case 0:
            return packed(3, {{0, 4, 11}, {4, 3, 5}, {7, 32, 0xC00002AB}, {39, 4, 13}, {43, 16, 0xB0A5}});
        case 1:
            return packed(
                3,
                {{0, 4, 11}, {4, 2, 2}, {6, 32, first}, {38, 4, 13}, {42, 16, 0xB0A5}, {58, 2, firstMask}});
        case 2:
            return packed(3, {{0, 4, 11},
                              {4, 2, 2},
                              {6, 32, 0xC00002AB},
                              {38, 32, first},
                              {70, 4, 13},
                              {74, 16, 0xB0A5},
                              {92, 2, firstMask}});
        default:
            return packed(
                3,
                {{0, 1, 1}, {1, 3, 5}, {4, 2, 1}, {6, 32, first}, {38, 32, 0xC00002AB}, {72, 2, firstMask}});
    }
}

U32 onesIn(std::vector<U32> const& words, std::size_t count) {
    U32 ones = 0;
    for (std::size_t i = 0; i < count; ++i)
        ones += static_cast<U32>(std::popcount(words[i]));
    return ones;
}

class AclHashRowTest : public NerioTest::AclChipTest {
protected:
    Place placeOf(U8 physTableIdx) const {
        for (auto const& place : places) {
            bool const fits = place.physTableIdx == physTableIdx && place.single == single();
            if (fits && place.firstVersion <= version() && version() <= place.lastVersion) return place;
        }
        ADD_FAILURE();
        return {};
    }

    /** The row for `keyOf` with these bits behind the key, and parity at `parityBit` behind it. */
    std::vector<U32> expected(U8 physTableIdx, Bits const& resultBits, U32 parityBit) const {
        auto const place = placeOf(physTableIdx);
        auto const key = packedKeyOf(physTableIdx, version() > 2);
        U32 const implied = place.length - place.behindKey;
        auto fields = bitsOf(key, implied, place.length - 1);
        for (auto const& bits : resultBits)
            fields.push_back({place.behindKey + bits.bit, bits.width, bits.value});
        auto words = packed(8, fields);
        U32 const ones = onesIn(words, physTableIdx == 2 ? 4 : 3);
        fields.push_back({place.behindKey + parityBit, 1, ones % 2});
        fields.push_back({192, implied, key[0] & ((1u << implied) - 1)});
        for (auto const& bits : controlBits(physTableIdx))
            fields.push_back(bits);
        return packed(8, fields);
    }

    /** The control word of row 1365 in hash table 1, pipeline 1. */
    Bits controlBits(U8 physTableIdx) const {
        if (single()) return {{128, 12, 1365}, {140, 1, 1}, {141, 3, physTableIdx}, {146, 1, 1}};
        return {{128, 11, 1365}, {139, 1, 1}, {141, 3, physTableIdx}, {144, 1, 1}, {146, 1, 1}};
    }

    std::vector<U32> rowIn(U8 physTableIdx, AclHashResult const& result, Words const& before = {}) {
        auto const words = row(keyOf(physTableIdx), result, {1365, 1}, before);
        return {words.begin(), words.end()};
    }

    void expectRow(U8 physTableIdx, AclHashResult const& result, Bits const& resultBits, U32 parityBit) {
        SCOPED_TRACE(static_cast<U32>(physTableIdx));
        EXPECT_EQ(rowIn(physTableIdx, result), expected(physTableIdx, resultBits, parityBit))
            << Sorn::text(result);
    }
};

using AclHashRowUntilVersion3Test = AclHashRowTest;

INSTANTIATE_TEST_SUITE_P(, AclHashRowTest, testing::ValuesIn(NerioTest::aclChips()), NerioTest::aclChipName);
INSTANTIATE_TEST_SUITE_P(, AclHashRowUntilVersion3Test, testing::ValuesIn(NerioTest::aclChips(2, 3)),
                         NerioTest::aclChipName);

TEST_P(AclHashRowTest, Tables0To2HoldTheRulesOfTheirVersion) {
    for (U8 const physTableIdx : std::initializer_list<U8>{0, 1, 2}) {
        startTable(physTableIdx, 1);
        auto const noRange = resultOf(ruleOf(5, true, 0x5A3), ruleOf(9, true, 7, 2));
        auto const withRange = resultOf(ruleOf(17, true, 0xA5C, 6), ruleOf(9, true, 7, 2));
        if (version() <= 3) {
            expectRow(physTableIdx, noRange, {{0, 6, 59}, {6, 1, 1}, {7, 4, 7}, {11, 1, 1}, {12, 11, 0x5A3}},
                      24);
            expectRow(physTableIdx, withRange,
                      {{0, 6, 47}, {6, 1, 1}, {7, 4, 7}, {11, 1, 1}, {12, 11, 0x25C}}, 24);
        } else {
            expectRow(physTableIdx, noRange, {{0, 6, 59}, {6, 1, 1}, {7, 12, 0x5A3}}, 41);
            expectRow(physTableIdx, withRange, {{19, 3, 6}, {22, 6, 47}, {28, 1, 1}, {29, 12, 0xA5C}}, 41);
        }
    }
}

TEST_P(AclHashRowTest, Table5HoldsOneRuleWithoutItsCounterAndSinceVersion3WithoutItsFlag) {
    startTable(5, 1);
    for (U32 const rangeId : {8u, 3u}) {
        auto const result = resultOf(ruleOf(5, true, 0x5A3, rangeId), ruleOf(9, true, 7, 2));
        if (version() == 2) {
            expectRow(5, result, {{0, 6, 59}, {6, 1, 1}}, 9);
        } else {
            expectRow(5, result, {{0, 6, 59}}, 8);
        }
        auto const plain = resultOf(ruleOf(5, false, 0x5A3, rangeId));
        expectRow(5, plain, {{0, 6, 59}}, version() == 2 ? 9 : 8);
    }
}

TEST_P(AclHashRowTest, ALowerPriorityIsAHigherValueAndNoneIs0) {
    startTable(0, 1);
    U32 const parity = version() <= 3 ? 24 : 41;
    for (U32 const priority : {0u, 1u, 2u, 32u, 62u, 63u}) {
        U64 const value = priority == 0 ? 0 : 64 - priority;
        expectRow(0, resultOf(ruleOf(priority)), {{0, 6, value}}, parity);
        if (version() >= 4) expectRow(0, resultOf(ruleOf(priority, false, 0, 0)), {{22, 6, value}}, parity);
    }
}

TEST_P(AclHashRowUntilVersion3Test, TheSecondChainsPriorityHasFourBits) {
    startTable(0, 1);
    for (auto const& [priority, value] : {std::pair{0u, 0u}, {1u, 15u}, {15u, 1u}, {16u, 0u}, {17u, 15u}})
        expectRow(0, resultOf(ruleOf(0), ruleOf(priority)), {{7, 4, value}}, 24);
}

TEST_P(AclHashRowTest, BitsThatAreNotWrittenStayAndCountForParity) {
    Words ones{};
    ones.fill(0xFFFFFFFF);
    for (U8 const physTableIdx : std::initializer_list<U8>{0, 1, 2, 5}) {
        SCOPED_TRACE(static_cast<U32>(physTableIdx));
        startTable(physTableIdx, 1);
        auto const base = placeOf(physTableIdx).behindKey;
        auto const rowBits = single() ? 12u : 11u;
        // Which bits of a row are written, with a range and without.
        for (bool const range : {false, true}) {
            Bits written{{0, base, 0}, {192, rowBits, 0}, {128, 12, 0}, {141, 4, 0}};
            written.push_back({146, 1, 0});
            if (single()) written.push_back({140, 1, 0});
            Bits const rules = physTableIdx == 5 ? Bits{{base, version() == 2 ? 10u : 9u, 0}}
                               : version() <= 3  ? Bits{{base, 23, 0}, {base + 24, 1, 0}}
                               : range           ? Bits{{base, 6, 0}, {base + 19, 22, 0}, {base + 41, 1, 0}}
                                                 : Bits{{base, 19, 0}, {base + 22, 6, 0}, {base + 41, 1, 0}};
            written.insert(written.end(), rules.begin(), rules.end());
            auto const result = resultOf(ruleOf(3, false, 0x111, range ? 5 : 8));
            auto const over0 = rowIn(physTableIdx, result);
            auto const over1 = rowIn(physTableIdx, result, ones);
            auto mask = std::vector<U32>(8, 0);
            for (auto const& field : written) {
                for (std::size_t i = 0; i < field.width; ++i)
                    mask[(field.bit + i) / 32] |= 1u << (field.bit + i) % 32;
            }
            U32 const parityWords = physTableIdx == 2 ? 4 : 3;
            EXPECT_EQ(onesIn(over0, parityWords) % 2, 0u);
            EXPECT_EQ(onesIn(over1, parityWords) % 2, 0u);
            U32 const parityAt = base + (physTableIdx == 5 ? version() == 2 ? 9u : 8u
                                         : version() <= 3  ? 24u
                                                           : 41u);
            for (std::size_t word = 0; word < 8; ++word) {
                U32 const parityBit = word == parityAt / 32 ? 1u << parityAt % 32 : 0;
                EXPECT_EQ((over1[word] ^ over0[word]) & mask[word] & ~parityBit, 0u) << "written: " << word;
                EXPECT_EQ(over1[word] | mask[word], 0xFFFFFFFF) << "left: " << word;
            }
        }
    }
}

TEST_P(AclHashRowTest, AnEmptyKeyClearsTheRowButForTheControlWord) {
    Words ones{};
    ones.fill(0xFFFFFFFF);
    for (U8 const physTableIdx : std::initializer_list<U8>{0, 1, 2, 5}) {
        startTable(physTableIdx, 1);
        auto const nothing = physTableIdx == 5 ? keyOf(5).firstPrefixIs({}).secondPrefixIs({})
                                               : keyOf(physTableIdx).aclIdIs(16);
        auto expectedWords = packed(8, controlBits(physTableIdx));
        expectedWords[7] = 0xFFFFFFFF;
        for (auto const& key : {nothing, AclHashKey()}) {
            auto const words = row(key, resultOf(ruleOf(1)), {1365, 1}, ones);
            EXPECT_EQ(std::vector<U32>(words.begin(), words.end()), expectedWords) << Sorn::text(key);
        }
    }
}

TEST_P(AclHashRowTest, Table5IsNotEmptyWithOneOfBothAddresses) {
    startTable(5, 1);
    for (auto const& key : {keyOf(5).firstPrefixIs({}), keyOf(5).secondPrefixIs({})}) {
        auto const words = row(key, resultOf(ruleOf(1)));
        EXPECT_NE(words[0], 0u);
        EXPECT_NE(words[6], 0u);
    }
    auto const noAcl = row(keyOf(5).aclIdIs(16), resultOf(ruleOf(1)));
    EXPECT_NE(noAcl[0], 0u) << "the ACL number says nothing in table 5";
    EXPECT_EQ(row(keyOf(5).firstPrefixIs(prefixOf({0, 0, 0, 0}, 8)).secondPrefixIs(Lanvo::Prefix::null()),
                  resultOf(ruleOf(1)))[0],
              0u)
        << "an address of zero is absent whatever its length";
}

TEST_P(AclHashRowTest, TheControlWordNamesRowTableAndProcessorTable) {
    startTable(2, 1);
    Words words{};
    helper().setStaticBuffer({0x7FF, 0}, reinterpret_cast<U8*>(words.data()));
    EXPECT_EQ(words[4], single() ? 0x000447FFu : 0x000547FFu);
    words.fill(0);
    helper().setStaticBuffer({0, 1}, reinterpret_cast<U8*>(words.data()));
    EXPECT_EQ(words[4], single() ? 0x00045000u : 0x00054800u);
    EXPECT_EQ(words, (Words{0, 0, 0, 0, words[4], 0, 0, 0})) << "nothing else is written";
    words.fill(0xFFFFFFFF);
    helper().setStaticBuffer({0, 2}, reinterpret_cast<U8*>(words.data()));
    EXPECT_EQ(words[4], single() ? 0xFFFE4000u : 0xFFFF5000u) << "bits 17 and above stay, and bit 12 if free";
}

TEST_P(AclHashRowTest, TheControlWordTellsOddPipelinesOnlyWhereTheyShareAProcessor) {
    startTable(1, 0);
    EXPECT_EQ(row(AclHashKey(), {})[4], 0x00042000u);
    startTable(1, 1);
    EXPECT_EQ(row(AclHashKey(), {})[4], single() ? 0x00042000u : 0x00052000u);
    startTable(5, 1);
    EXPECT_EQ(row(AclHashKey(), {})[4], single() ? 0x0004A000u : 0x0005A000u);
}

TEST_P(AclHashRowTest, AKeyOfAnotherPhysicalTableIsLaidOutByItsOwn) {
    startTable(1, 1);
    auto words = rowIn(0, resultOf(ruleOf(5)));
    U32 const parity = version() <= 3 ? 24 : 41;
    auto wanted = expected(0, {{0, 6, 59}}, parity);
    wanted[4] |= 1u << 13;
    EXPECT_EQ(words, wanted) << "and only the control word is that of this table";
}

class AclHashRowFormatTest : public NerioTest::AclTableFixture {};

TEST_F(AclHashRowFormatTest, Version2Table0SingleHasItsParityAtBit71) {
    chipIs({2, true});
    startTable(0);
    EXPECT_EQ(row(keyOf(0), {})[2] ^ row(keyOf(0), resultOf(ruleOf(0, true)))[2], 1u << (71 - 64));
}

TEST_F(AclHashRowFormatTest, Version2Table0SharedHasItsParityAtBit72) {
    chipIs({2, false});
    startTable(0);
    EXPECT_EQ(row(keyOf(0), {})[2] ^ row(keyOf(0), resultOf(ruleOf(0, true)))[2], 1u << (72 - 64));
}

TEST_F(AclHashRowFormatTest, Version4Table2SharedHasItsParityAtBit124) {
    chipIs({4, false});
    startTable(2);
    EXPECT_EQ(row(keyOf(2), {})[3] ^ row(keyOf(2), resultOf(ruleOf(0, true)))[3], 1u << (124 - 96));
}

TEST_F(AclHashRowFormatTest, WholeRowsByTheirWords) {
    chipIs({2, true});
    startTable(0);
    auto const key = AclHashKey()
                         .aclIdIs(1)
                         .combinationIs(1)
                         .secondPrefixIs(prefixOf({1, 2, 3, 4}, 32))
                         .protocolIs(6)
                         .portIs(80);
    // Key 0x00000050 << 43 | 6 << 39 | 0x01020304 << 7 | 1 << 4 | 1, without its lowest twelve bits.
    EXPECT_EQ(row(key, resultOf(ruleOf(1, true, 3), ruleOf(2)), {7, 1}),
              (Words{0x30081018, 0x1BBF8028, 0, 0, 0x00041007, 0, 0x211, 0}));
}

using AclHashRowDeathTest = AclHashRowFormatTest;

TEST_F(AclHashRowDeathTest, AnItemOfTheOtherPipeModeIsRefused) {
    chipIs({2, true});
    startTable(0);
    auto const item = Belmo::make<AclHashTableCuckooEntry>(keyOf(0), false, false);
    Words words{};
    EXPECT_DEATH(helper().setHwBuffer(item, {}, reinterpret_cast<U8*>(words.data())),
                 "entry->singleAclPipeMode\\(\\) == singleAclPipeMode");
}

TEST_F(AclHashRowDeathTest, AChipBeforeVersion2HasNoRows) {
    profile().hwApi = {1, 9};
    auto const lone = aclHashTableFactory("rules", 0, 0);
    lone->profileIs(&profile());
    auto const rows = lone->hashBaseHelperFactory();
    rows->swTableIs(lone.get());
    rows->doInit();
    auto const item = Belmo::make<AclHashTableCuckooEntry>(keyOf(0), true, false);
    Words words{};
    EXPECT_DEATH(rows->setHwBuffer(item, {}, reinterpret_cast<U8*>(words.data())), "verMajor >= 2");
}

TEST_F(AclHashRowDeathTest, AHelperWithoutATableWritesNothing) {
    auto const lone = aclHashHelperFactory(69);
    Words words{};
    EXPECT_DEATH(lone->setStaticBuffer({}, reinterpret_cast<U8*>(words.data())), "swTable\\(\\)");
    EXPECT_DEATH(lone->profile(), "swTable\\(\\)");
}

}  // namespace
