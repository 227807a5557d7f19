// Multicast routes of any source, alone and with the routes of stage 29 in the same rows.
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>

#include "NerioSwitch/CrcHash.h"

#include "CrowdedKeys.h"
#include "FailureText.h"
#include "LpmFixture.h"
#include "NerioSwitchTable/NerioTableLpmTables.h"
#include "NerioSwitchTable/NerioTableStarG.h"
#include "PackedWords.h"
#include "SwitchFixture.h"
#include "TraceCapture.h"
#include "WatchedBus.h"
#include "chip/MulticastLookup.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::LpmKey;
using NerioSwitch::MrouteKey;
using NerioSwitchApi::HwIndex;
using NerioSwitchApi::StartMode;
using NerioTest::packed;

constexpr auto programmed = NerioSwitchApi::EntryProgrammedStatus::entryProgrammed;

MrouteKey groupKey(U32 group, U32 vlan) {
    return {{{}, 32}, {Lanvo::IpAddr::fromHostOrder(group), 32}, vlan};
}

StarGResult toPorts(U64 ports, U16 vlanGroup = 3) {
    return StarGResult().portMaskIs(ports).vlanGroupIdIs(vlanGroup);
}

MrouteKey const someGroup = groupKey(0xE1A5C3D7, 0xABC);

class StarGTableTest : public NerioTest::TableFixture<StarGTable> {
protected:
    using Words = std::array<U32, 8>;

    StarGTableTest() : TableFixture([] { return starGTableFactory("starG"); }) {}

    StarGHelper& helper() { return static_cast<StarGHelper&>(*table().helper()); }
    Words row(MrouteKey const& key, StarGResult const& result, Dovra::Cuckoo::CuckooLocation location = {},
              bool valid = true) {
        Words words{};
        auto const item = table().createHashEntry(key, false);
        item->resultIs(result);
        item->validIs(valid);
        helper().setHwBuffer(item, location, reinterpret_cast<U8*>(words.data()));
        return words;
    }
    void store(HwIndex index, Words const& words) {
        for (auto const& [id, copy] : convertor().hwTables())
            shadow(id).store(index, std::span(words).first<7>());
    }
    Belmo::Ptr<StarGTableCuckooEntry> decoded(HwIndex index) {
        return Belmo::ptrCast<StarGTableCuckooEntry>(helper().decodeHwEntry(index));
    }
};

TEST_F(StarGTableTest, HasItsConstants) {
    start();
    EXPECT_EQ(table().swTableId(), 44u);
    EXPECT_TRUE(table().statusSupported());
    EXPECT_TRUE(table().hitBitsSupported());
    EXPECT_TRUE(table().hwTablesDuplicate());
    EXPECT_EQ(helper().tableIdx(), 36);
    EXPECT_EQ(helper().physTableIndex(), 36u);
    EXPECT_TRUE(helper().sharesTable());
    EXPECT_EQ(StarGHelper::compareWidth, 28u);
    EXPECT_EQ(helper().hashTableId(), 1);
    EXPECT_EQ(helper().hwResultWidth(52), 57u);
    EXPECT_NE(dynamic_cast<Lpm29Convertor*>(&convertor()), nullptr);
    auto const& hash = *table().hashConvertor();
    EXPECT_EQ(hash.properties().tableId(), 67u);
    EXPECT_EQ(hash.tableSize(), 4096u);
    EXPECT_EQ(hash.properties().hashBits(), 12u);
    EXPECT_EQ(hash.numHashTables(), 2u);
    EXPECT_EQ(hash.entryWords(), 7);
    EXPECT_EQ(convertor().descriptor(1)->name(), "starG/demo/StarG/1");
    EXPECT_EQ(StarGResult().vlanGroupId().value(), 17);
    EXPECT_EQ(toPorts(0xABC, 5).resultString(), "vlanGroupId: 5  portMask: 0xABC");
}

TEST_F(StarGTableTest, ARowHasTheGroupTheVlanAndTheMulticastBit) {
    start();
    auto const words = row(someGroup, toPorts(0x10000000000005, 11), {0xABC, 1});
    auto expected = packed(8, {{0, 16, 0xE1A5C3D7 >> 12},
                               {16, 12, 0xABC},
                               {28, 1, 1},
                               {29, 1, 1},
                               {30, 4, 11},
                               {34, 53, 0x10000000000005},
                               {128, 12, 0xABC},
                               {142, 2, 1},
                               {145, 1, 1},
                               {146, 4, 1},
                               {160, 32, 0xE1A5C3D7}});
    U32 ones = 0;
    for (std::size_t i = 0; i < 4; ++i)
        ones += static_cast<U32>(__builtin_popcount(expected[i]));
    expected[87 / 32] |= (ones & 1) << 87 % 32;
    EXPECT_EQ(std::vector<U32>(words.begin(), words.end()), expected);
}

TEST_F(StarGTableTest, OnAChipOf24PortsTheCpuStandsAtPort24AndTheParityBehindIt) {
    profile().numPorts = 24;
    start();
    auto const words = row(groupKey(0xE0000000, 0), toPorts(U64{1} << 52 | U64{1} << 30 | 1, 0));
    EXPECT_EQ(words[0], 3u << 28);
    EXPECT_EQ(words[1], 1u << 2 | 1u << 26) << "port 30 is none of this chip's";
    EXPECT_EQ(row(groupKey(0xE0000000, 0), toPorts(1, 0))[1], 1u << 2 | 1u << 27)
        << "the parity of three ones";
}

TEST_F(StarGTableTest, HashesGroupAndVlanWithBit40Set) {
    auto const item = StarGTableCuckooEntryIs(someGroup);
    U64 const number = U64{1} << 40 | U64{0xABC} << 28 | 0x1A5C3D7;
    auto const* const bytes = reinterpret_cast<U8 const*>(&number);
    for (U8 way = 0; way < 2; ++way)
        EXPECT_EQ(item->getHash(way), NerioSwitch::crc12Hash(bytes, way, 41));
    auto const input = item->hashInput();
    EXPECT_EQ(input.bits, 41);
    for (std::size_t i = 0; i < 8; ++i)
        EXPECT_EQ(input.bytes[i], bytes[i]);
    EXPECT_EQ(item->hwCompareEncoding(), 0xABC1A5Cu);
    auto const sameButTop = StarGTableCuckooEntryIs(groupKey(0x01A5C3D7, 0xABC));
    EXPECT_EQ(sameButTop->getHash(1), item->getHash(1)) << "the top four bits play no part";
    EXPECT_TRUE(item->toStrep().starts_with("StarGTableCuckooEntry( "));
}

TEST_F(StarGTableTest, AnEmptyRowHasTheMulticastBitAndVlanGroup1) {
    start();
    EXPECT_FALSE(helper().nullHashEntry()->valid());
    auto const null = Belmo::ptrCast<StarGTableCuckooEntry>(helper().nullHashEntry());
    EXPECT_EQ(null->key(), MrouteKey({}, {}, 0));
    EXPECT_EQ(null->result().vlanGroupId().value(), 17);
    auto const empty = row(null->key(), null->result(), {5, 1}, false);
    U32 const control = 5u | 1u << 14 | 1u << 17 | 1u << 18;
    EXPECT_THAT(empty, testing::ElementsAre(1u << 28 | 1u << 30, 0, 0, 0, control, 0, 0, 0));
}

TEST_F(StarGTableTest, VlanGroup17KeepsItsLow4BitsAndASourceIsNotToldByHardware) {
    start();
    MrouteKey const ofSource({Lanvo::IpAddr::fromHostOrder(0x0A000001), 32}, someGroup.group(), 5);
    table().entryIs(someGroup, toPorts(1, 17));
    table().entryIs(groupKey(0xE0000001, 4094), toPorts(2, 16));
    table().entryIs(ofSource, toPorts(4, 15));
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entries().size(), 3u);
    EXPECT_EQ(table().entry(someGroup), toPorts(1, 1));
    EXPECT_EQ(table().entry(groupKey(0xE0000001, 4094)), toPorts(2, 0));
    EXPECT_FALSE(table().entryHas(ofSource));
    EXPECT_EQ(table().entry(groupKey(0xE1A5C3D7, 5)), toPorts(4, 15));
    EXPECT_TRUE(table().hwInconsistentEntries().empty());
}

TEST_F(StarGTableTest, RoutesOfTwoSourcesComeBackAsOneThatItsRowHolds) {
    start();
    MrouteKey const ofSource({Lanvo::IpAddr::fromHostOrder(0x0A000001), 32}, someGroup.group(), 0xABC);
    table().entryIs(ofSource, toPorts(4));
    table().entryIs(someGroup, toPorts(2));
    EXPECT_EQ(table().hashConvertor()->rowsInUse(), 2u);
    restart();
    EXPECT_EQ(table().entries().size(), 1u);
    EXPECT_EQ(table().hashConvertor()->rowsInUse(), 1u);
    auto const back = table().entry(someGroup);
    auto const item = table().hashItem(someGroup);
    EXPECT_EQ(item->result(), back);
    EXPECT_EQ(decoded(item->hwIndex())->result(), back);
    holdsAcrossRestart([&] { EXPECT_EQ(table().entry(someGroup), back); });
}

TEST_F(StarGTableTest, TracesWhatItDoes) {
    start();
    NerioTest::TraceCapture const trace("NerioTableStarG", 8);
    table().entryIs(someGroup, toPorts(5));
    auto const item = table().hashItem(someGroup);
    EXPECT_THAT(trace.lines(), testing::Contains("StarGTable: Programming Entry " + item->toStrep()));
    decoded(item->hwIndex());
    EXPECT_EQ(trace.lines().back(), "Decoded valid entry is " + item->toStrep());
    table().entryDel(someGroup);
    EXPECT_THAT(trace.lines(), testing::Contains(testing::StartsWith("StarGTable: Removing Entry ")));
}

TEST_F(StarGTableTest, AGroupWithBit27SetComesBackMarkedAsInconsistent) {
    start();
    auto const upper = groupKey(0xEF000001, 7);
    auto const lower = groupKey(0xE7000001, 7);
    table().entryIs(upper, toPorts(1));
    table().entryIs(lower, toPorts(2));
    EXPECT_FALSE(table().hwInconsistentEntry(upper));
    takeWrites();
    restart();
    EXPECT_EQ(takeWriteCount(), 0u);
    EXPECT_EQ(table().entry(upper), toPorts(1));
    EXPECT_EQ(table().entry(lower), toPorts(2));
    EXPECT_TRUE(table().hwInconsistentEntry(upper));
    EXPECT_FALSE(table().hwInconsistentEntry(lower));
}

TEST_F(StarGTableTest, ARowOfARouteOrOfVlan4095IsRefused) {
    start();
    auto words = row(someGroup, toPorts(1));
    words[0] |= 0xFFFu << 16;
    store(7, words);
    EXPECT_EQ(failureOf<Belmo::RangeException>([&] { decoded(7); }),
              "Bridging::VlanIdOrNone::value > 4094 not allowed");
    words = row(someGroup, toPorts(1));
    words[0] &= ~(1u << 28);
    store(7, words);
    EXPECT_FALSE(helper().entryOwned(7));
    EXPECT_DEATH(decoded(7), "!valid \\|\\| multicast");
    store(7, row(someGroup, toPorts(1)));
    EXPECT_TRUE(helper().entryOwned(7));
    decoded(7);
    auto other = row(someGroup, toPorts(3));
    shadow(1).store(7, std::span(other).first<7>());
    EXPECT_EQ(decoded(7)->result(), toPorts(1));
    EXPECT_TRUE(table().hwInconsistentEntry(someGroup)) << "the copies differ";
}

TEST_F(StarGTableTest, AHitReachesItsKey) {
    start();
    table().entryIs(someGroup, toPorts(1));
    chip().indirectMemory("ingress/processor_l3[1]/lpm29").hitIs(table().hashItem(someGroup)->hwIndex());
    EXPECT_EQ(poll(2.5), 1u);
    EXPECT_EQ(table().tableStatus()->entryStatus(someGroup).lastHit(), Belmo::Duration(2.5));
}

/** Which of the two tables is made first. */
enum class First { routes, groups };

/** A chip and a shadow, and a process over them with one of the tables or both. */
class RoutesAndGroupsTest : public ::testing::TestWithParam<First> {
protected:
    void processIs() {
        routes = nullptr;
        groups = nullptr;
        framework = std::make_unique<NerioSwitchApi::TableFramework>(profile, bus, shadows);
    }
    void routesAre(StartMode mode) {
        routes = lpm29TableFactory("routes");
        framework->tableIs(routes, mode);
    }
    void groupsAre(StartMode mode) {
        groups = starGTableFactory("groups");
        framework->tableIs(groups, mode);
    }
    void bothAre(StartMode mode) {
        processIs();
        if (GetParam() == First::routes) routesAre(mode);
        groupsAre(mode);
        if (GetParam() == First::groups) routesAre(mode);
    }
    static LpmKey routeKey(U32 number) {
        return NerioTest::routeKey(static_cast<U8>(number & 3), (number >> 2) * 0x9E3779B0u & 0xFFFFFFE0, 27);
    }
    static LpmResult route(U32 nexthop) {
        return LpmResult().cellResultIs(1, NerioTest::routeCell(nexthop, 28));
    }
    bool isPlaced(auto const& table, auto const& key) {
        return table->entryHas(key) && table->tableStatus()->entryStatus(key).status() == programmed;
    }
    /** Groups that share four rows in each way. */
    static std::vector<MrouteKey> crowdedGroups() {
        auto const keyOf = [](U64 number) {
            return groupKey(0xE0000000u | static_cast<U32>(number & 0xFFFFFFF),
                            static_cast<U32>(number >> 28 & 0x3FF));
        };
        auto const rowOf = [&](U64 number, U8 way) {
            return StarGTableCuckooEntry(keyOf(number)).getHash(way);
        };
        auto numbers = NerioTest::rowKeepers(rowOf, 38, {0}, 2);
        for (U64 const number : NerioTest::rowKeepers(rowOf, 38, {1}, 2))
            numbers.push_back(number);
        std::vector<MrouteKey> keys;
        for (U64 const number : NerioTest::spanOf(numbers))
            keys.push_back(keyOf(number));
        return keys;
    }
    /** Routes that have a row with a group in common. */
    static std::vector<LpmKey> crowdedRoutes(MrouteKey const& group) {
        std::vector<LpmKey> keys;
        U32 const row = StarGTableCuckooEntry(group).getHash(0);
        for (U32 number = 0; keys.size() < 6; ++number) {
            auto const key = routeKey(number);
            if (LpmStageCuckooEntry<29>(key).getHash(0) == row) keys.push_back(key);
        }
        return keys;
    }
    /** Whether a look-up on the second processor's rows would find the route. */
    bool chipHasRoute(LpmKey const& key) {
        auto const& memory = chip->indirectMemory("ingress/processor_l3[1]/lpm29");
        U32 const address = key.prefix().address().hostOrder();
        U64 const number = U64{key.vrf()} << 27 | address >> 5;
        U32 const wanted = address >> 17 | U32{key.vrf()} << 15 | 1u << 29;
        for (U8 way = 0; way < 2; ++way) {
            U32 const row = NerioSwitch::crc12Hash(reinterpret_cast<U8 const*>(&number), way, 41);
            if ((memory.row(way * 4096 + row)[0] & 0x3FFFFFFF) == wanted) return true;
        }
        return false;
    }
    /** Every row is its table's, on the chip as well; rows without an item are nobody's. */
    void ownersAgree() {
        auto const& convertor = *routes->hashConvertor();
        auto const& memory = chip->indirectMemory("ingress/processor_l3[0]/lpm29");
        std::size_t items = 0;
        for (HwIndex index = 0; index < 8192; ++index) {
            auto const* const owner = convertor.itemAt(index) ? convertor.itemAt(index)->table() : nullptr;
            bool const isRoute = owner == routes.get();
            bool const isGroup = owner == groups.get();
            ASSERT_EQ(routes->helper()->entryOwned(index), isRoute);
            ASSERT_EQ(groups->helper()->entryOwned(index), isGroup);
            U32 const kind = memory.row(index)[0] >> 28 & 3;
            ASSERT_EQ(kind & (owner != nullptr ? 3u : 2u), isRoute ? 2u : isGroup ? 3u : 0u) << index;
            items += owner != nullptr ? 1 : 0;
        }
        EXPECT_EQ(convertor.rowsInUse(), items);
        EXPECT_EQ(framework->gauges().counters().front()->used(), items);
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip = Chip::simulatedChip(*profile);
    Belmo::Ptr<Chip::RecordingBus> bus = Belmo::make<Chip::RecordingBus>(chip);
    Belmo::Ptr<NerioSwitchApi::ShadowStore> shadows = NerioSwitchApi::memoryShadowStore();
    std::unique_ptr<NerioSwitchApi::TableFramework> framework;
    Belmo::Ptr<Lpm29Table> routes;
    Belmo::Ptr<StarGTable> groups;
};

TEST_P(RoutesAndGroupsTest, ShareTheirRowsAndTheSecondOneWritesNone) {
    processIs();
    GetParam() == First::routes ? routesAre(StartMode::cold) : groupsAre(StartMode::cold);
    bus->take();
    GetParam() == First::routes ? groupsAre(StartMode::cold) : routesAre(StartMode::cold);
    EXPECT_TRUE(bus->take().empty()) << "rows are empty as the first one left them";
    EXPECT_EQ(routes->hashConvertor(), groups->hashConvertor());
    EXPECT_EQ(routes->hashConvertor()->descriptor(0)->name(),
              GetParam() == First::routes ? "routes/demo/Lpm29/0" : "groups/demo/StarG/0");
    ASSERT_EQ(framework->gauges().counters().size(), 1u);
    EXPECT_EQ(framework->gauges().counters().front()->capacity(), 8192u);
    routes->entryIs(routeKey(6), route(9));
    groups->entryIs(someGroup, toPorts(1));
    ownersAgree();
}

TEST_P(RoutesAndGroupsTest, ATableThatGoesLeavesRowsToTheOtherWithoutAWrite) {
    bothAre(StartMode::cold);
    routes->entryIs(routeKey(6), route(9));
    groups->entryIs(someGroup, toPorts(1));
    bus->take();
    routes = nullptr;
    groups->entryIs(groupKey(0xE1000001, 3), toPorts(2));
    groups->entryDel(groupKey(0xE1000001, 3));
    routesAre(StartMode::warm);
    EXPECT_EQ(bus->take().size(), 2u * 2 * 5) << "those of the entry that came and went";
    EXPECT_EQ(routes->entry(routeKey(6)), route(9));
    groups = nullptr;
    routes->entryDel(routeKey(6));
    groupsAre(StartMode::warm);
    EXPECT_EQ(bus->take().size(), 2u * 5);
    EXPECT_EQ(groups->entry(someGroup), toPorts(1));
    ownersAgree();
}

TEST_P(RoutesAndGroupsTest, EachSeesItsOwnRowsUnderRandomOperationsAndRestarts) {
    std::mt19937 generator(29);
    auto const random = [&](U32 bound) { return static_cast<U32>(generator() % bound); };
    bothAre(StartMode::cold);
    std::map<LpmKey, LpmResult> wantedRoutes;
    std::map<MrouteKey, StarGResult> wantedGroups;
    auto const anyGroup = [&] {
        U32 const number = random(3000);
        return groupKey(0xE0000000u | (number * 0x9E3779B1u & 0xFFFFFFF), number % 5);
    };
    for (int round = 0; round < 6; ++round) {
        for (int i = 0; i < 3000; ++i) {
            auto const key = routeKey(random(6000));
            auto const group = anyGroup();
            bool const add = random(3) != 0;
            if (add) {
                routes->entryIs(key, wantedRoutes[key] = route(random(4000) + 60));
                groups->entryIs(
                    group, wantedGroups[group] = toPorts(random(1u << 31), static_cast<U16>(random(16))));
            } else {
                routes->entryDel(key);
                groups->entryDel(group);
                wantedRoutes.erase(key);
                wantedGroups.erase(group);
            }
        }
        ownersAgree();
        std::erase_if(wantedRoutes, [&](auto const& entry) { return !isPlaced(routes, entry.first); });
        std::erase_if(wantedGroups, [&](auto const& entry) { return !isPlaced(groups, entry.first); });
        EXPECT_GT(wantedRoutes.size(), 500u);
        EXPECT_GT(wantedGroups.size(), 500u);
        bus->take();
        bothAre(StartMode::warm);
        EXPECT_TRUE(bus->take().empty());
        EXPECT_EQ(routes->entries().size(), wantedRoutes.size());
        EXPECT_EQ(groups->entries().size(), wantedGroups.size());
        for (auto const& [key, result] : wantedRoutes)
            ASSERT_EQ(routes->entry(key), result);
        for (auto const& [key, result] : wantedGroups)
            ASSERT_EQ(groups->entry(key), result);
        ownersAgree();
    }
}

TEST_P(RoutesAndGroupsTest, NoRegisterWriteLosesAnEntryOrMakesAFalseHit) {
    auto const watched = Belmo::make<NerioTest::WatchedBus>(chip);
    framework = std::make_unique<NerioSwitchApi::TableFramework>(profile, watched, shadows);
    if (GetParam() == First::routes) routesAre(StartMode::cold);
    groupsAre(StartMode::cold);
    if (GetParam() == First::groups) routesAre(StartMode::cold);
    auto const groupKeys = crowdedGroups();
    auto const routeKeys = crowdedRoutes(groupKeys.front());
    std::map<MrouteKey, U64> placedGroups;
    std::map<LpmKey, bool> placedRoutes;
    Chip::MulticastLookup const lookup(*chip, *profile, 1);
    MrouteKey changingGroup;
    LpmKey changingRoute;
    bool holds = true;
    auto const look = [&] {
        for (auto const& key : groupKeys) {
            if (key == changingGroup) continue;
            auto const hit = lookup.findGroupRoute(key.group().address().hostOrder(), key.vlanId().value());
            auto const placed = placedGroups.find(key);
            holds = holds && hit.has_value() == (placed != placedGroups.end());
            holds = holds && (!hit || hit->ports == placed->second);
        }
        for (auto const& key : routeKeys)
            holds = holds && (key == changingRoute || chipHasRoute(key) == placedRoutes.contains(key));
    };
    watched->look = look;
    std::mt19937 random(2936);
    for (U32 step = 1; step < 400; ++step) {
        bool const add = random() % 4 != 0;
        if (random() % 2 == 0) {
            changingGroup = groupKeys[random() % groupKeys.size()];
            add ? groups->entryIs(changingGroup, toPorts(step)) : void(groups->entryDel(changingGroup));
            placedGroups.erase(changingGroup);
            if (isPlaced(groups, changingGroup)) placedGroups[changingGroup] = step;
        } else {
            changingRoute = routeKeys[random() % routeKeys.size()];
            add ? routes->entryIs(changingRoute, route(step)) : void(routes->entryDel(changingRoute));
            placedRoutes.erase(changingRoute);
            if (isPlaced(routes, changingRoute)) placedRoutes[changingRoute] = true;
        }
        changingGroup = MrouteKey();
        changingRoute = LpmKey();
        look();
        ASSERT_TRUE(holds) << "step " << step;
    }
    EXPECT_GT(routes->hashConvertor()->moveHistogram()[1], 0u);
    EXPECT_GT(routes->hashConvertor()->failedPlacements(), 0u);
    watched->look = {};
    ownersAgree();
}

INSTANTIATE_TEST_SUITE_P(EitherFirst, RoutesAndGroupsTest, ::testing::Values(First::routes, First::groups),
                         [](auto const& first) {
                             return first.param == First::routes ? "RoutesFirst" : "GroupsFirst";
                         });

}  // namespace
