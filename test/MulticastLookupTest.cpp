// The chip forwards what tables placed, and nothing else, at every moment.
#include <gtest/gtest.h>
#include <map>
#include <random>

#include "CrowdedKeys.h"
#include "NerioSwitchTable/NerioTableSG.h"
#include "NerioSwitchTable/NerioTableStarG.h"
#include "SwitchFixture.h"
#include "chip/MulticastLookup.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::MrouteKey;

constexpr auto programmed = NerioSwitchApi::EntryProgrammedStatus::entryProgrammed;

SGKey routeOf(U32 source, U32 group, U32 vlan) {
    return SGKey::multicastKey(MrouteKey({Lanvo::IpAddr::fromHostOrder(source), 32},
                                         {Lanvo::IpAddr::fromHostOrder(group), 32}, vlan));
}

SGKey flowOf(U32 source, U32 destination, U16 profile) {
    return SGKey::unicastKey(Lanvo::IpAddr::fromHostOrder(source), Lanvo::IpAddr::fromHostOrder(destination),
                             profile);
}

struct SGChip {
    U16 version;
    bool translates;

    friend std::ostream& operator<<(std::ostream& stream, SGChip const& chip) {
        return stream << "version " << chip.version << (chip.translates ? " translates" : "");
    }
};

class SGOnChip : public NerioTest::TableFixture<SGTable>, public ::testing::WithParamInterface<SGChip> {
protected:
    SGOnChip() : TableFixture([] { return sGTableFactory("sg"); }) {
        profile().hwApi = {GetParam().version, 0};
        profile().natProfile = GetParam().translates;
    }

    /** Keys that crowd in few rows, of both kinds where the chip has them. */
    std::vector<SGKey> crowdedKeys() const {
        auto const add = [](auto const& keyOf, std::vector<SGKey>& keys) {
            auto const rowOf = [&](U64 number, U8 way) {
                return SGTableCuckooEntry(keyOf(number)).getHash(way);
            };
            for (U64 const number : NerioTest::crowdedNumbers(rowOf, 56, 3))
                keys.push_back(keyOf(number));
        };
        std::vector<SGKey> keys;
        add(
            [](U64 n) {
                return routeOf(static_cast<U32>(n), 0xE0000000u | (n >> 32 & 0xFFFFF),
                               static_cast<U32>(n >> 52 & 15));
            },
            keys);
        if (GetParam().translates)
            add([](U64 n) { return flowOf(static_cast<U32>(n), 0x0A000000u | (n >> 32 & 0xFFFFFF), 9); },
                keys);
        return keys;
    }
    SGResult randomResult(SGKey const& key) {
        SGResult result;
        if (key.isMulticastKey()) {
            result.dataIs(
                SGResult::Multicast().vlanGroupIdIs(random_() % 16).portMaskIs(random_() & 0x1FFFFFFFFFFFFF));
        } else {
            result.dataIs(SGResult::Unicast().l3LagIndexIs(random_() % 64).rewriteIndexIs(random_() % 64));
        }
        return result.lookupTypeIs(static_cast<SGLookupType>(random_() % 4))
            .natTypeIs(static_cast<SGNatType>(random_() % 4))
            .natSessionIdIs(random_() % 0x20000)
            .natEnabledIs(random_() % 2 != 0);
    }
    /** Rows have room for the translation where the chip translates, from version 6 on. */
    static bool sameTranslation(Chip::PairTranslation const& found, SGResult const& wanted) {
        if (!GetParam().translates || GetParam().version < 6) return found == Chip::PairTranslation();
        return found.natType == static_cast<U8>(wanted.natType()) &&
               found.natSession == wanted.natSessionId() && found.natEnabled == wanted.natEnabled();
    }
    static bool sameRoute(std::optional<Chip::MulticastHit> const& hit, SGResult const& wanted) {
        auto const multicast = wanted.data().multicast();
        return hit && hit->ports == multicast.portMask().value() &&
               hit->vlanGroup == multicast.vlanGroupId().value() && sameTranslation(hit->translation, wanted);
    }
    static bool sameFlow(std::optional<Chip::FlowHit> const& hit, SGResult const& wanted) {
        if (!hit) return false;
        auto const unicast = wanted.data().unicast();
        return hit->l3Lag == unicast.l3LagIndex().value() &&
               hit->rewriteIndex == unicast.rewriteIndex().value() &&
               hit->lookupType == static_cast<U8>(wanted.lookupType()) &&
               sameTranslation(hit->translation, wanted);
    }
    /** Whether the chip meets for the key what is wanted for it; a key of the other kind is none of it. */
    bool finds(SGKey const& key, SGResult const& wanted) {
        Chip::MulticastLookup const lookup(chip(), profile(), 1);
        U32 const sip = key.sip().hostOrder();
        U32 const dip = key.dip().hostOrder();
        if (key.isMulticastKey())
            return sameRoute(lookup.find(sip, dip, key.data().multicast().vlanId().value()), wanted);
        auto const profileId = static_cast<U8>(key.data().unicast().ingressProfileId());
        return sameFlow(lookup.findFlow(sip, dip, profileId), wanted);
    }
    bool findsNone(SGKey const& key) {
        Chip::MulticastLookup const lookup(chip(), profile(), 1);
        U32 const sip = key.sip().hostOrder();
        U32 const dip = key.dip().hostOrder();
        if (key.isMulticastKey()) return !lookup.find(sip, dip, key.data().multicast().vlanId().value());
        return !lookup.findFlow(sip, dip, static_cast<U8>(key.data().unicast().ingressProfileId()));
    }
    bool isPlaced(SGKey const& key) {
        return table().entryHas(key) && table().tableStatus()->entryStatus(key).status() == programmed;
    }

    std::mt19937_64 random_{20266};
};

TEST_P(SGOnChip, TheChipFindsWhatWasPlacedAndNothingElse) {
    start();
    std::map<SGKey, SGResult> wanted;
    for (U32 i = 0; i < 3000; ++i) {
        auto const number = static_cast<U32>(random_());
        auto const key = i % 2 != 0 && GetParam().translates
                             ? flowOf(number, number >> 7, static_cast<U16>(i % 64))
                             : routeOf(number, 0xE0000000u | i, i % 4095);
        auto const [entry, isNew] = wanted.emplace(key, randomResult(key));
        if (isNew && i % 5 != 0) table().entryIs(key, entry->second);
    }
    auto const agrees = [&] {
        for (auto const& [key, result] : wanted)
            ASSERT_EQ(isPlaced(key) ? finds(key, result) : findsNone(key), true) << key.stringValue();
    };
    agrees();
    U32 number = 0;
    for (auto const& [key, result] : wanted) {
        if (++number % 3 == 0) table().entryDel(key);
    }
    agrees();
    restart();
    agrees();
}

TEST_P(SGOnChip, NoRegisterWriteLosesAnEntryOrMakesAFalseHit) {
    start();
    auto const keys = crowdedKeys();
    std::map<SGKey, SGResult> placed;
    SGKey changing;
    U64 writes = 0;
    bool holds = true;
    afterEveryWriteIs([&] {
        ++writes;
        for (auto const& key : keys) {
            if (key == changing) continue;
            auto const found = placed.find(key);
            holds = holds && (found == placed.end() ? findsNone(key) : finds(key, found->second));
        }
    });
    for (int step = 0; step < 400; ++step) {
        changing = keys[random_() % keys.size()];
        auto const result = randomResult(changing);
        if (random_() % 4 == 0) {
            table().entryDel(changing);
            EXPECT_TRUE(findsNone(changing));
        } else {
            table().entryIs(changing, result);
            EXPECT_EQ(isPlaced(changing) ? finds(changing, result) : findsNone(changing), true);
        }
        placed.erase(changing);
        if (isPlaced(changing)) placed[changing] = result;
        ASSERT_TRUE(holds) << "step " << step;
    }
    afterEveryWriteIs({});
    auto const& moves = table().hashConvertor()->moveHistogram();
    EXPECT_GT(moves[1] + moves[2] + moves[3], 0u);
    EXPECT_GT(table().hashConvertor()->failedPlacements(), 0u);
    EXPECT_GT(writes, 1000u);
}

INSTANTIATE_TEST_SUITE_P(
    Chips, SGOnChip, ::testing::Values(SGChip{5, true}, SGChip{6, true}, SGChip{5, false}, SGChip{6, false}),
    [](auto const& chip) {
        return "Version" + std::to_string(chip.param.version) + (chip.param.translates ? "Translates" : "");
    });

/** Both kinds of multicast routes on one chip. */
class MulticastOnChip : public ::testing::Test {
protected:
    MulticastOnChip() {
        framework.tableIs(sources, NerioSwitchApi::StartMode::cold);
        framework.tableIs(groups, NerioSwitchApi::StartMode::cold);
    }
    static MrouteKey groupKey(U32 group, U32 vlan) {
        return {{{}, 32}, {Lanvo::IpAddr::fromHostOrder(group), 32}, vlan};
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip = Chip::simulatedChip(*profile);
    NerioSwitchApi::TableFramework framework{profile, chip, NerioSwitchApi::memoryShadowStore()};
    Belmo::Ptr<SGTable> sources = sGTableFactory("sources");
    Belmo::Ptr<StarGTable> groups = starGTableFactory("groups");
    Chip::MulticastLookup lookup{*chip, *profile};
};

TEST_F(MulticastOnChip, ARouteOfTheSourceGoesBeforeThatOfTheGroup) {
    sources->entryIs(routeOf(1, 0xE1000001, 5),
                     SGResult().dataIs(SGResult::Multicast().portMaskIs(1).vlanGroupIdIs(2)));
    groups->entryIs(groupKey(0xE1000001, 5), StarGResult().portMaskIs(U64{1} << 52 | 6).vlanGroupIdIs(4));
    auto const ofSource = lookup.find(1, 0xE1000001, 5);
    ASSERT_TRUE(ofSource);
    EXPECT_EQ(ofSource->ports, 1u);
    EXPECT_EQ(ofSource->vlanGroup, 2);
    EXPECT_TRUE(ofSource->ofSource);
    auto const ofGroup = lookup.find(2, 0xE1000001, 5);
    ASSERT_TRUE(ofGroup);
    EXPECT_EQ(ofGroup->ports, U64{1} << 52 | 6);
    EXPECT_EQ(ofGroup->vlanGroup, 4);
    EXPECT_FALSE(ofGroup->ofSource);
    EXPECT_EQ(lookup.find(1, 0xE1000001, 6), std::nullopt);
    EXPECT_EQ(lookup.find(1, 0xE1000002, 5), std::nullopt);
    EXPECT_EQ(lookup.findFlow(1, 0xE1000001, 5), std::nullopt)
        << "a flow of the same addresses is another key";
}

TEST_F(MulticastOnChip, PacketsMarkTheRowThatAnswersThem) {
    auto const source = routeOf(1, 0xE1000001, 5);
    auto const flow = flowOf(1, 0x0A000001, 5);
    auto const group = groupKey(0xE1000001, 5);
    sources->entryIs(source, SGResult());
    sources->entryIs(flow, SGResult().dataIs(SGResult::Unicast()));
    groups->entryIs(group, StarGResult());
    EXPECT_TRUE(lookup.packetIs(1, 0xE1000001, 5));
    EXPECT_TRUE(lookup.flowIs(1, 0x0A000001, 5));
    EXPECT_FALSE(lookup.flowIs(1, 0x0A000001, 6));
    EXPECT_EQ(framework.pollHitBits(Belmo::Duration(1)), 2u);
    EXPECT_TRUE(lookup.packetIs(9, 0xE1000001, 5));
    EXPECT_EQ(framework.pollHitBits(Belmo::Duration(2)), 1u);
    EXPECT_EQ(sources->tableStatus()->entryStatus(source).lastHit(), Belmo::Duration(1));
    EXPECT_EQ(sources->tableStatus()->entryStatus(flow).lastHit(), Belmo::Duration(1));
    EXPECT_EQ(groups->tableStatus()->entryStatus(group).lastHit(), Belmo::Duration(2));
}

TEST_F(MulticastOnChip, ARowOfWrongParityIsPassedOver) {
    auto const source = routeOf(1, 0xE1000001, 5);
    sources->entryIs(source, SGResult());
    auto const stored = chip->indirectMemory("ingress/processor_l3[0]/sg");
    U32 const row = sources->hashItem(source)->hwIndex();
    std::vector<U32> const words(stored.row(row).begin(), stored.row(row).end());
    auto const prefix = Belmo::String("ingress/processor_l3[0]/");
    for (U32 i = 0; i < 5; ++i)
        chip->write(chip->address(prefix + "hash_data" + std::to_string(i)), words[i] ^ (i == 4 ? 1 : 0));
    chip->write(chip->address(prefix + "hash_ctl"), row % 8192 | row / 8192 << 14 | 1u << 17 | 8u << 18);
    EXPECT_EQ(lookup.find(1, 0xE1000001, 5), std::nullopt);
}

TEST_F(MulticastOnChip, GroupRoutesAreFoundThroughRandomChanges) {
    std::mt19937 random(62);
    std::map<MrouteKey, StarGResult> wanted;
    for (int i = 0; i < 6000; ++i) {
        U32 const number = static_cast<U32>(random() % 5000);
        auto const key = groupKey(0xE0000000u | (number * 0x9E3779B1u & 0xFFFFFFF), number % 4095);
        if (random() % 4 == 0) {
            groups->entryDel(key);
            wanted.erase(key);
        } else {
            auto const result = StarGResult().portMaskIs(random()).vlanGroupIdIs(random() % 16);
            groups->entryIs(key, wanted[key] = result);
        }
    }
    for (U32 number = 0; number < 5000; ++number) {
        U32 const group = 0xE0000000u | (number * 0x9E3779B1u & 0xFFFFFFF);
        auto const vlan = static_cast<U16>(number % 4095);
        auto const key = groupKey(group, vlan);
        auto const hit = lookup.findGroupRoute(group, vlan);
        bool const isPlaced =
            groups->entryHas(key) && groups->tableStatus()->entryStatus(key).status() == programmed;
        ASSERT_EQ(hit.has_value(), isPlaced) << number;
        if (!hit) continue;
        EXPECT_EQ(hit->ports, wanted[key].portMask().value());
        EXPECT_EQ(hit->vlanGroup, wanted[key].vlanGroupId().value());
    }
}

}  // namespace
