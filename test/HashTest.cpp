#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <vector>

#include "Bridging/VlanId.h"
#include "Lanvo/Address.h"
#include "NerioSwitch/Indexes.h"
#include "Sorn/Enum.h"
#include "Sorn/HashMap.h"

namespace {

/**
 * How unevenly keys fall on the buckets that the low bits of their hashes choose, as a hash map chooses
 * them: the chi-square statistic, in standard deviations from what throwing the keys at random gives.
 */
template <class Key>
double unevenness(std::vector<Key> const& keys) {
    std::vector<double> load(std::bit_ceil(keys.size()));
    for (auto const& key : keys)
        ++load[Sorn::hashOf(key) & (load.size() - 1)];
    auto const expected = static_cast<double>(keys.size()) / static_cast<double>(load.size());
    double chiSquare = 0;
    for (double const count : load)
        chiSquare += (count - expected) * (count - expected) / expected;
    auto const freedom = static_cast<double>(load.size() - 1);
    return (chiSquare - freedom) / std::sqrt(2 * freedom);
}

template <class Key, class Make>
std::vector<Key> keysOf(U32 count, Make const& make) {
    std::vector<Key> keys;
    for (U32 i = 0; i < count; ++i)
        keys.push_back(make(i));
    return keys;
}

TEST(Hash, SpreadsSequentialPortsAndVlansOverTheLowBits) {
    using NerioSwitch::ChipPortId;
    EXPECT_LT(unevenness(keysOf<ChipPortId>(53, [](U32 i) { return ChipPortId(i); })), 4);
    using Bridging::VlanId;
    EXPECT_LT(unevenness(keysOf<VlanId>(4094, [](U32 i) { return VlanId(i + 1); })), 4);
}

TEST(Hash, SpreadsAddressesOverTheLowBitsWhicheverByteCounts) {
    for (U32 const shift : {0u, 8u, 16u}) {
        auto const keys = keysOf<Lanvo::IpAddr>(
            0x10000, [&](U32 i) { return Lanvo::IpAddr::fromHostOrder(0x0A000000 ^ i << shift); });
        EXPECT_LT(unevenness(keys), 4) << shift;
    }
}

TEST(Hash, SpreadsPrefixesAndEthernetAddressesOverTheLowBits) {
    auto const prefixes = keysOf<Lanvo::Prefix>(
        20000, [](U32 i) { return Lanvo::Prefix(Lanvo::IpAddr::fromHostOrder(0x0A000000 + (i << 8)), 24); });
    EXPECT_LT(unevenness(prefixes), 4);
    auto const addresses = keysOf<Lanvo::EthAddr>(20000, [](U32 i) {
        return Lanvo::EthAddr({0x00, 0x1c, 0x73, 0, static_cast<U8>(i >> 8), static_cast<U8>(i)});
    });
    EXPECT_LT(unevenness(addresses), 4);
}

TEST(Hash, SpreadsMultiplesOfAnyPowerOfTwo) {
    for (U32 shift = 0; shift <= 50; ++shift)
        EXPECT_LT(unevenness(keysOf<U64>(4096, [&](U32 i) { return U64{i} << shift; })), 4) << shift;
}

TEST(Hash, ChangesAboutHalfItsBitsWithAnyBitOfTheNumberOrTheSeed) {
    for (U32 bit = 0; bit < 64; ++bit) {
        int changed = 0;
        for (U64 number = 0; number < 256; ++number)
            changed += std::popcount(Sorn::hashOf(number) ^ Sorn::hashOf(number ^ U64{1} << bit));
        EXPECT_NEAR(changed / 256.0, 16, 4) << "number bit " << bit;
    }
    for (U32 bit = 0; bit < 32; ++bit) {
        int changed = 0;
        for (U64 number = 0; number < 256; ++number)
            changed += std::popcount(Sorn::hashOf(number, 0) ^ Sorn::hashOf(number, U32{1} << bit));
        EXPECT_NEAR(changed / 256.0, 16, 4) << "seed bit " << bit;
    }
}

SORN_ENUM(Side, U8, (left, 1), (right, 2));

TEST(Hash, TakesEnumeratorsAndFlagsAsTheirNumbers) {
    EXPECT_EQ(Sorn::hashOf(Side::right), Sorn::hashOf(2));
    EXPECT_EQ(Sorn::hashOf(true), Sorn::hashOf(U64{1}));
    EXPECT_NE(Sorn::hashOf(Side::left), Sorn::hashOf(Side::right));
}

TEST(HashMap, KeepsWhatAMapKeeps) {
    Sorn::HashMap<Bridging::VlanId, int> map;
    for (int vlan = 1; vlan <= 4094; ++vlan)
        map[vlan] = vlan * 3;
    for (int vlan = 2; vlan <= 4094; vlan += 2)
        EXPECT_EQ(map.erase(vlan), 1u);
    EXPECT_EQ(map.size(), 2047u);
    for (int vlan = 1; vlan <= 4094; ++vlan) {
        auto const found = map.find(vlan);
        EXPECT_EQ(found == map.end() ? 0 : found->second, vlan % 2 == 0 ? 0 : vlan * 3);
    }
}

}  // namespace
