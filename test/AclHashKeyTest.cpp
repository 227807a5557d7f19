#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "NerioSwitch/CrcHash.h"

#include "AclFixture.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::AclHashKey;
using NerioTest::packed;
using NerioTest::PackedBits;
using NerioTest::prefixOf;
using testing::Each;

using Fields = std::initializer_list<PackedBits>;

constexpr U64 absent = 0xFFFFFFFF;

/** A key with every attribute set, whatever its combination looks at. */
AclHashKey fullKey(U32 combination) {
    return AclHashKey()
        .portIs(0x1234)
        .firstPrefixIs(prefixOf({10, 1, 2, 3}, 32))
        .secondPrefixIs(prefixOf({172, 16, 0, 0}, 12))
        .aclIdIs(9)
        .combinationIs(combination)
        .protocolIs(6)
        .rangeIdIs(5)
        .vrfIdIs(6)
        .keyFlagIs(true);
}

struct Buffer {
    std::vector<U32> words;
    U32 length;
};

Buffer bufferOf(AclHashKey const& key, bool hasFilterMask) {
    AclHashTableCuckooEntry const item(key, true, hasFilterMask);
    std::array<U8, 20> bytes{};
    bytes.fill(0xFF);
    Buffer buffer{std::vector<U32>(5), item.copyKeyToBuffer(bytes.data(), 20)};
    std::memcpy(buffer.words.data(), bytes.data(), 20);
    return buffer;
}

void expectKey(AclHashKey const& key, bool hasFilterMask, U32 length, Fields fields) {
    auto const buffer = bufferOf(key, hasFilterMask);
    EXPECT_EQ(buffer.words, packed(5, fields)) << Sorn::text(key) << (hasFilterMask ? " masked" : "");
    EXPECT_EQ(buffer.length, length) << Sorn::text(key);
}

/** The one field of `length` bits at `bit` in the packed key. */
U64 fieldOf(AclHashKey const& key, bool hasFilterMask, U32 bit, U32 length) {
    auto const words = bufferOf(key, hasFilterMask).words;
    U64 value = 0;
    for (U32 i = 0; i < length; ++i)
        value |= U64{words[(bit + i) / 32] >> ((bit + i) % 32) & 1} << i;
    return value;
}

TEST(AclHashKeyTest, PhysicalTable0HoldsTheSecondAddress) {
    for (U32 combination = 0; combination <= 6; ++combination) {
        U64 const protocol = combination == 3 ? 15 : 6;
        expectKey(fullKey(combination), false, 59,
                  {{0, 4, 9}, {4, 3, combination}, {7, 32, 0xAC100000}, {39, 4, protocol}, {43, 16, 0x1234}});
        expectKey(fullKey(combination), true, 61,
                  {{0, 4, 9},
                   {4, 3, combination},
                   {7, 32, 0xAC100000 | 12},
                   {39, 4, protocol},
                   {43, 16, 0x1234},
                   {59, 2, 3}});
    }
}

TEST(AclHashKeyTest, PhysicalTable1HoldsTheFirstAddress) {
    for (U32 combination = 7; combination <= 10; ++combination) {
        U64 const protocol = combination == 7 ? 15 : 6;
        auto const key = fullKey(combination).firstPrefixIs(prefixOf({10, 1, 2, 0}, 29));
        expectKey(
            key, false, 58,
            {{0, 4, 9}, {4, 2, combination - 7}, {6, 32, 0x0A010200}, {38, 4, protocol}, {42, 16, 0x1234}});
        expectKey(key, true, 60,
                  {{0, 4, 9},
                   {4, 2, combination - 7},
                   {6, 32, 0x0A010200 | 2},
                   {38, 4, protocol},
                   {42, 16, 0x1234},
                   {58, 2, 2}});
    }
}

TEST(AclHashKeyTest, PhysicalTable2HoldsTheSecondAddressBeforeTheFirst) {
    for (U32 combination = 11; combination <= 14; ++combination) {
        U64 const protocol = combination == 11 ? 15 : 6;
        auto const key = fullKey(combination).firstPrefixIs(prefixOf({10, 1, 2, 2}, 31));
        expectKey(key, false, 90,
                  {{0, 4, 9},
                   {4, 2, combination - 11},
                   {6, 32, 0xAC100000},
                   {38, 32, 0x0A010202},
                   {70, 4, protocol},
                   {74, 16, 0x1234}});
        expectKey(key, true, 94,
                  {{0, 4, 9},
                   {4, 2, combination - 11},
                   {6, 32, 0xAC100000 | 12},
                   {38, 32, 0x0A010202},
                   {70, 4, protocol},
                   {74, 16, 0x1234},
                   {90, 2, 3},
                   {92, 2, 1}});
    }
}

TEST(AclHashKeyTest, PhysicalTable5HoldsBothAddressesAndTheVrfAndNeitherAclNorPort) {
    for (U32 combination = 15; combination <= 18; ++combination) {
        expectKey(
            fullKey(combination), false, 70,
            {{0, 1, 1}, {1, 3, 6}, {4, 2, combination - 15}, {6, 32, 0x0A010203}, {38, 32, 0xAC100000}});
        expectKey(fullKey(combination), true, 74,
                  {{0, 1, 1},
                   {1, 3, 6},
                   {4, 2, combination - 15},
                   {6, 32, 0x0A010203},
                   {38, 32, 0xAC100000 | 12},
                   {70, 2, 3},
                   {72, 2, 0}});
    }
}

TEST(AclHashKeyTest, TheVrfOfNoNumberPacksAsVrf0) {
    EXPECT_EQ(fieldOf(fullKey(15).vrfIdIs(128), true, 1, 3), 0u);
    EXPECT_EQ(fieldOf(fullKey(15).vrfIdIs(9), true, 1, 3), 1u) << "three bits of it";
}

TEST(AclHashKeyTest, AnAclNumberIsItsLowFourBits) {
    EXPECT_EQ(fieldOf(fullKey(0).aclIdIs(15), false, 0, 4), 15u);
    EXPECT_EQ(fieldOf(fullKey(0).aclIdIs(16), false, 0, 4), 0u);
    EXPECT_EQ(fieldOf(fullKey(0).aclIdIs(0xF5), false, 0, 7), 5u) << "and does not reach the combination";
}

TEST(AclHashKeyTest, CombinationsWithoutAProtocolPack15WhateverItSays) {
    for (U32 const protocol : {0u, 1u, 6u, 15u}) {
        EXPECT_EQ(fieldOf(fullKey(3).protocolIs(protocol), true, 39, 4), 15u);
        EXPECT_EQ(fieldOf(fullKey(7).protocolIs(protocol), true, 38, 4), 15u);
        EXPECT_EQ(fieldOf(fullKey(11).protocolIs(protocol), true, 70, 4), 15u);
    }
    AclHashTableCuckooEntry const one(fullKey(3).protocolIs(1), true, true);
    AclHashTableCuckooEntry const other(fullKey(3).protocolIs(2), true, true);
    for (U8 way = 0; way < 2; ++way)
        EXPECT_EQ(one.getHash(way), other.getHash(way));
}

/** The port fields of physical tables 0, 1 and 2, by combination. */
U64 portField(AclHashKey const& key) {
    U32 const combination = key.combination().value();
    return fieldOf(key, true, combination <= 6 ? 43 : combination <= 10 ? 42 : 74, 16);
}

TEST(AclHashKeyTest, ThePort0IsAnyPortUnlessTheKeySaysOtherwise) {
    for (U32 const combination : {1u, 2u, 5u, 6u, 9u, 10u, 13u, 14u}) {
        auto const key = fullKey(combination).portIs(0);
        EXPECT_EQ(portField(key), 0xFFFFu) << combination;
        EXPECT_EQ(portField(AclHashKey(key).portIsZeroIs(true)), 0u) << combination;
        EXPECT_EQ(portField(fullKey(combination).portIsZeroIs(true)), 0x1234u) << combination;
    }
}

TEST(AclHashKeyTest, OtherCombinationsDoNotTellThePort0FromAny) {
    for (U32 const combination : {0u, 3u, 4u, 7u, 8u, 11u, 12u}) {
        auto const key = fullKey(combination).portIs(0);
        EXPECT_EQ(portField(key), 0xFFFFu) << combination;
        EXPECT_EQ(portField(AclHashKey(key).portIsZeroIs(true)), 0xFFFFu) << combination;
        EXPECT_EQ(portField(fullKey(combination)), 0x1234u) << combination;
    }
}

TEST(AclHashKeyTest, AnAddressOfZeroIsAbsentWhateverItsLength) {
    for (U8 length = 0; length <= 32; ++length) {
        auto const key = fullKey(0).secondPrefixIs(prefixOf({0, 0, 0, 0}, length));
        EXPECT_EQ(fieldOf(key, false, 7, 32), absent);
        EXPECT_EQ(fieldOf(key, true, 7, 32), absent) << "the length is not folded in";
    }
    auto const null = fullKey(0).secondPrefixIs(Lanvo::Prefix::null());
    EXPECT_EQ(fieldOf(null, false, 7, 32), absent);
    EXPECT_EQ(fieldOf(null, true, 7, 32), absent);
}

TEST(AclHashKeyTest, TheMaskTypeOfAnAbsentAddressStillTellsItsLength) {
    auto const maskType = [](Lanvo::Prefix const& prefix) {
        return fieldOf(fullKey(0).secondPrefixIs(prefix), true, 59, 2);
    };
    for (U8 const length : std::initializer_list<U8>{0, 1, 26})
        EXPECT_EQ(maskType(prefixOf({0, 0, 0, 0}, length)), 3u) << int{length};
    for (U8 const length : std::initializer_list<U8>{27, 30})
        EXPECT_EQ(maskType(prefixOf({0, 0, 0, 0}, length)), 2u) << int{length};
    EXPECT_EQ(maskType(prefixOf({0, 0, 0, 0}, 31)), 1u);
    EXPECT_EQ(maskType(prefixOf({0, 0, 0, 0}, 32)), 0u);
    EXPECT_EQ(maskType(Lanvo::Prefix::null()), 0u);
}

TEST(AclHashKeyTest, ALengthIsFoldedIntoTheLowBitsOfItsAddress) {
    struct Folding {
        U8 length;
        U32 address;
        U32 maskType;
    };
    for (auto const& [length, address, maskType] :
         {Folding{1, 0x80000001, 3}, Folding{8, 0xC0000008, 3}, Folding{26, 0xC0A8005A, 3},
          Folding{27, 0xC0A80060, 2}, Folding{28, 0xC0A80061, 2}, Folding{29, 0xC0A80062, 2},
          Folding{30, 0xC0A80067, 2}, Folding{31, 0xC0A80066, 1}, Folding{32, 0xC0A80067, 0}}) {
        U32 const whole = 0xC0A80067 & Lanvo::Prefix::mask(length);
        auto const key = fullKey(8).firstPrefixIs(Lanvo::Prefix(Lanvo::IpAddr::fromHostOrder(whole), length));
        EXPECT_EQ(fieldOf(key, true, 6, 32), address) << int{length};
        EXPECT_EQ(fieldOf(key, true, 58, 2), maskType) << int{length};
        EXPECT_EQ(fieldOf(key, false, 6, 32), whole) << int{length};
    }
}

TEST(AclHashKeyTest, TheRangeIsNoPartOfThePackedKey) {
    EXPECT_EQ(bufferOf(fullKey(13).rangeIdIs(0), true).words, bufferOf(fullKey(13).rangeIdIs(8), true).words);
}

TEST(AclHashKeyTest, TheHashIsThatOfThePackedKeyAndItsLength) {
    for (U32 combination = 0; combination <= 18; ++combination) {
        for (bool const masked : {false, true}) {
            auto const key = fullKey(combination);
            AclHashTableCuckooEntry const single(key, true, masked);
            AclHashTableCuckooEntry const shared(key, false, masked);
            std::array<U8, 20> bytes{};
            U8 const bits = single.copyKeyToBuffer(bytes.data(), 20);
            for (U8 way = 0; way < 4; ++way) {
                EXPECT_EQ(single.getHash(way), NerioSwitch::crc12Hash(bytes.data(), way, bits));
                EXPECT_EQ(shared.getHash(way), NerioSwitch::crc11Hash(bytes.data(), way, bits));
            }
        }
    }
}

TEST(AclHashKeyTest, AnItemKnowsItsModesAndStartsWithTheDefaultResult) {
    AclHashTableCuckooEntry const item(fullKey(1), true, false);
    EXPECT_TRUE(item.singleAclPipeMode());
    EXPECT_FALSE(item.hasFilterMask());
    EXPECT_EQ(item.key(), fullKey(1));
    EXPECT_EQ(item.result(), NerioSwitch::AclHashResult());
    EXPECT_FALSE(item.valid());
    EXPECT_TRUE(item.lastHit().isNever());
}

TEST(AclHashKeyTest, ABufferOf14BytesIsEnoughAndIsClearedFirst) {
    std::array<U8, 16> bytes{};
    bytes.fill(0xFF);
    AclHashTableCuckooEntry const item(fullKey(0), true, false);
    EXPECT_EQ(item.copyKeyToBuffer(bytes.data(), 14), 59);
    EXPECT_EQ(bytes[7] >> 3, 0);
    EXPECT_THAT(std::vector<U8>(bytes.begin() + 8, bytes.begin() + 14), Each(0));
    EXPECT_THAT(std::vector<U8>(bytes.begin() + 14, bytes.end()), Each(0xFF));
}

TEST(AclHashKeyDeathTest, ABufferOf13BytesIsTooSmall) {
    std::array<U8, 13> bytes{};
    AclHashTableCuckooEntry const item(fullKey(0), true, false);
    EXPECT_DEATH(item.copyKeyToBuffer(bytes.data(), 13), "bufSize >= 14");
}

}  // namespace
