// Whole multicast routes: all parts of one are in hardware, or none.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CrowdedKeys.h"
#include "FailureText.h"
#include "MulticastSwitch.h"

namespace {

using Agent::MulticastRoute;
using Agent::Refusal;
using NerioSwitchApi::StartMode;
using NerioSwitchTable::SGKey;
using NerioSwitchTable::SGResult;
using NerioTest::Copies;
using NerioTest::copiesOf;
using NerioTest::cpuPort;
using NerioTest::fromAny;
using NerioTest::fromSource;
using NerioTest::MulticastSwitch;
using testing::Each;
using testing::ElementsAre;

constexpr U32 someSource = 0x0A140509;
constexpr U32 otherSource = 0x0A140577;
constexpr U32 someGroup = 0xEF010101;

struct MulticastAgentTest : testing::Test {
    std::optional<Refusal> add(MulticastRoute const& route) { return target.agent->routeIs(route); }
    bool added(MulticastRoute const& route) { return !add(route); }
    bool removed(MulticastRoute const& route) { return target.agent->routeDel(route.key()); }
    Copies copies(MulticastRoute const& route) {
        auto const source = route.source().len() == 0 ? otherSource : route.source().address().hostOrder();
        return target.copies({source, route.group().hostOrder(), route.vlanId().value()});
    }
    void expectNothing() {
        EXPECT_THAT(target.entries(), Each(0u));
        EXPECT_EQ(target.agent->routes(), 0u);
        EXPECT_EQ(target.agent->vlanRowsInUse(), 0u);
        EXPECT_EQ(target.chip->state(), empty);
    }
    /** Routes that take a group each: all leave by port 0, each in another VLAN. */
    static MulticastRoute ofOwnGroup(U16 number) {
        return fromAny(0xE0000100 + number, 5).outIs({{static_cast<U16>(100 + number), 0x1}});
    }
    void takeAllGroups() {
        for (U16 i = 0; i < 16; ++i)
            ASSERT_TRUE(added(ofOwnGroup(i)));
    }

    MulticastSwitch target;
    std::vector<U32> const empty = target.chip->state();
};

TEST_F(MulticastAgentTest, ARouteIsARowAndTheVlansOfEachOfItsPorts) {
    auto const route =
        fromSource(someSource, someGroup, 20).outIs({{30, 0x81}, {31, 0x80}, {32, 0x80}}).toCpuIs(true);
    EXPECT_FALSE(add(route));
    auto const result = target.tables.sources->entry(SGKey::multicastKey(route.key()));
    auto const group = result.data().multicast().vlanGroupId();
    EXPECT_EQ(result.data().multicast().portMask().value(), 1ull << 52 | 0x81);
    auto const vlans = [&](U16 port) { return target.tables.vlanGroups->entry({port, group}); };
    EXPECT_EQ(vlans(0).numVlans(), 1);
    EXPECT_EQ(vlans(0).group()[0], 30);
    EXPECT_EQ(vlans(7).numVlans(), 3);
    EXPECT_EQ(vlans(7).group()[0], 30);
    EXPECT_EQ(vlans(7).group()[2], 32);
    EXPECT_THAT(target.entries(), ElementsAre(1u, 0u, 2u));
    EXPECT_EQ(copies(route), (Copies{{0, 30}, {7, 30}, {7, 31}, {7, 32}, {cpuPort, 0}}));
    EXPECT_EQ(target.agent->route(route.key()), route);
    EXPECT_EQ(target.agent->vlanRowsInUse(), 2u);
    EXPECT_TRUE(removed(route));
    EXPECT_FALSE(removed(route));
    EXPECT_FALSE(target.agent->route(route.key()));
    expectNothing();
}

TEST_F(MulticastAgentTest, ARouteOfTheSourceGoesBeforeOneOfAny) {
    auto const any = fromAny(someGroup, 20).outIs({{30, 0x3}});
    auto const source = fromSource(someSource, someGroup, 20).outIs({{31, 0x4}});
    EXPECT_TRUE(added(any));
    EXPECT_TRUE(added(source));
    EXPECT_TRUE(target.tables.groups->entryHas({{{}, 32}, any.key().group(), 20}));
    EXPECT_EQ(target.copies({someSource, someGroup, 20}), (Copies{{2, 31}}));
    EXPECT_EQ(target.copies({otherSource, someGroup, 20}), (Copies{{0, 30}, {1, 30}}));
    EXPECT_EQ(target.copies({someSource, someGroup, 21}), Copies()) << "not the way back to the source";
    removed(source);
    EXPECT_EQ(target.copies({someSource, someGroup, 20}), (Copies{{0, 30}, {1, 30}}));
}

TEST_F(MulticastAgentTest, ARouteThatLeadsNowhereDropsPackets) {
    EXPECT_TRUE(added(fromAny(someGroup, 20).outIs({{30, 0x3}})));
    auto const pruned = fromSource(someSource, someGroup, 20).outIs({{30, 0}});
    EXPECT_TRUE(added(pruned));
    EXPECT_EQ(copies(pruned), Copies());
    EXPECT_THAT(target.entries(), ElementsAre(1u, 1u, 2u));
    EXPECT_TRUE(added(fromSource(otherSource, someGroup, 20).toCpuIs(true)));
    EXPECT_EQ(target.copies({otherSource, someGroup, 20}), (Copies{{cpuPort, 0}}));
}

TEST_F(MulticastAgentTest, RoutesShareVlansAndTheLastOneTakesThemAway) {
    auto const one = fromAny(someGroup, 20).outIs({{30, 0x3}});
    auto const two = fromAny(someGroup, 21).outIs({{30, 0x6}});
    auto const other = fromAny(someGroup, 22).outIs({{31, 0x2}});
    EXPECT_TRUE(added(one));
    EXPECT_TRUE(added(two));
    EXPECT_THAT(target.entries(), ElementsAre(0u, 2u, 3u)) << "port 1 is in the same VLAN for both";
    EXPECT_TRUE(added(other));
    EXPECT_THAT(target.entries(), ElementsAre(0u, 3u, 4u)) << "in another group";
    removed(one);
    EXPECT_THAT(target.entries(), ElementsAre(0u, 2u, 3u));
    EXPECT_EQ(copies(two), copiesOf(two));
    removed(two);
    removed(other);
    expectNothing();
}

TEST_F(MulticastAgentTest, OneThatIsThereIsNotWrittenAgain) {
    auto const route = fromAny(someGroup, 20).outIs({{30, 0x3}});
    add(route);
    auto const writes = target.bus->writes();
    EXPECT_TRUE(added(route));
    EXPECT_TRUE(added(MulticastRoute(route).outIs({{30, 0x3}, {31, 0}})));
    EXPECT_EQ(target.bus->writes(), writes);
}

TEST_F(MulticastAgentTest, WhatRowsCannotCarryIsRefusedAndNothingIsDone) {
    auto const failure = [&](MulticastRoute const& route) {
        return failureOf<Belmo::RangeException>([&] { add(route); });
    };
    auto const route = fromAny(someGroup, 20);
    EXPECT_EQ(failure(MulticastRoute(route).sourceIs({Lanvo::IpAddr::fromHostOrder(0x0A000000), 31})),
              "Agent::MulticastRoute::source::len != 0 and != 32 not allowed");
    EXPECT_EQ(failure(MulticastRoute(route).sourceIs(Lanvo::Prefix::null())),
              "Agent::MulticastRoute::source::len != 0 and != 32 not allowed");
    std::string const group = "Agent::MulticastRoute::group < 224.0.0.0 or > 239.255.255.255 not allowed";
    EXPECT_EQ(failure(fromAny(0xDFFFFFFF, 20)), group);
    EXPECT_EQ(failure(fromAny(0xF0000000, 20)), group);
    std::string const ports = "Agent::MulticastRoute::out >= ProfileInfo::numPorts not allowed";
    EXPECT_EQ(failure(MulticastRoute(route).outIs({{30, 0x100}})), ports);
    EXPECT_EQ(failure(MulticastRoute(route).outIs({{30, NerioSwitch::IngressPortMask::cpu}})), ports);
    Agent::VlanPorts vlans;
    for (U16 vlan = 1; vlan <= 8; ++vlan)
        vlans[vlan] = 0x80;
    auto tooMany = vlans;
    tooMany[4094] = 0x80;
    EXPECT_EQ(failure(MulticastRoute(route).outIs(tooMany)),
              "Agent::MulticastRoute::out: more than 8 VLANs at port 7 not allowed");
    expectNothing();
    for (auto const& fits : {MulticastRoute(route).outIs(vlans), fromAny(0xE0000000, 4094).outIs({{1, 0x80}}),
                             fromAny(0xEFFFFFFF, 0).outIs({{4094, 0xFF}})}) {
        EXPECT_EQ(failure(fits), "");
        EXPECT_EQ(copies(fits), copiesOf(fits));
    }
}

TEST_F(MulticastAgentTest, WithoutAGroupOfVlansARouteIsRefusedAndNothingIsWritten) {
    takeAllGroups();
    auto const writes = target.bus->writes();
    auto const refusal = add(ofOwnGroup(16));
    ASSERT_TRUE(refusal);
    EXPECT_EQ(refusal->reason, Refusal::Reason::noGroup);
    EXPECT_EQ(refusal->text, "no group of VLANs is left for (*, 224.0.1.16) in VLAN 5");
    EXPECT_EQ(target.bus->writes(), writes);
    EXPECT_FALSE(target.agent->route(ofOwnGroup(16).key()));
    EXPECT_TRUE(added(fromAny(someGroup, 7).outIs({{30, 0x2}}))) << "at other ports there is room";
    EXPECT_TRUE(added(fromAny(someGroup, 8).outIs({{103, 0x1}}))) << "in VLANs of another route as well";
    EXPECT_TRUE(added(fromAny(someGroup, 9).toCpuIs(true)));
    removed(ofOwnGroup(4));
    EXPECT_TRUE(added(ofOwnGroup(16)));
}

TEST_F(MulticastAgentTest, ARouteMayChangeItsVlansWhenAllGroupsAreTaken) {
    takeAllGroups();
    auto const changed = ofOwnGroup(3).outIs({{77, 0x1}, {78, 0x3}});
    std::set<Copies> met;
    target.watched->look = [&] {
        met.insert(copies(changed));
        for (U16 i = 0; i < 16; ++i) {
            if (i == 3) continue;
            ASSERT_EQ(copies(ofOwnGroup(i)), copiesOf(ofOwnGroup(i)));
        }
    };
    EXPECT_TRUE(added(changed));
    target.watched->look = {};
    EXPECT_EQ(met, (std::set<Copies>{copiesOf(ofOwnGroup(3)), {}, copiesOf(changed)}));
    EXPECT_EQ(copies(changed), copiesOf(changed));
    EXPECT_THAT(target.entries(), ElementsAre(0u, 16u, 17u));

    EXPECT_TRUE(added(fromAny(someGroup, 8).outIs({{105, 0x1}}))) << "shares the group of route 5";
    auto const writes = target.bus->writes();
    auto const refusal = add(ofOwnGroup(5).outIs({{79, 0x1}}));
    ASSERT_TRUE(refusal);
    EXPECT_EQ(refusal->reason, Refusal::Reason::noGroup);
    EXPECT_EQ(target.agent->route(ofOwnGroup(5).key()), ofOwnGroup(5)) << "it leads where it led";
    EXPECT_EQ(copies(ofOwnGroup(5)), copiesOf(ofOwnGroup(5)));
    EXPECT_EQ(target.bus->writes(), writes);
}

TEST_F(MulticastAgentTest, PacketsMeetTheOldOrTheNewRouteAtEveryWrite) {
    auto const old = fromSource(someSource, someGroup, 20).outIs({{30, 0x0F}, {31, 0x03}});
    auto const neighbour = fromAny(someGroup, 20).outIs({{30, 0x0C}, {32, 0x30}});
    auto const changed = MulticastRoute(old).outIs({{30, 0x0C}, {31, 0x0F}, {33, 0x40}}).toCpuIs(true);
    add(neighbour);
    std::set<Copies> met;
    target.watched->look = [&] {
        met.insert(target.copies({someSource, someGroup, 20}));
        ASSERT_EQ(copies(neighbour), copiesOf(neighbour));
    };
    EXPECT_TRUE(added(old));
    EXPECT_EQ(met, (std::set<Copies>{copiesOf(neighbour), copiesOf(old)}));
    met.clear();
    EXPECT_TRUE(added(changed));
    EXPECT_EQ(met, (std::set<Copies>{copiesOf(old), copiesOf(changed)}));
    met.clear();
    EXPECT_TRUE(removed(changed));
    EXPECT_EQ(met, (std::set<Copies>{copiesOf(changed), copiesOf(neighbour)}));
}

/** Routes of a source that share all their rows, so that three of them fill these. */
std::vector<MulticastRoute> crowdedRoutes() {
    auto const keyOf = [](U64 number) {
        return fromSource(static_cast<U32>(number), 0xE0000000u | (number >> 32 & 0xFFFFFFF), 9);
    };
    auto const rowOf = [&](U64 number, U8 way) {
        auto const key = SGKey::multicastKey(keyOf(number).key());
        return NerioSwitchTable::SGTableCuckooEntry(key).getHash(way);
    };
    std::vector<MulticastRoute> routes;
    for (U64 const number : NerioTest::spanOf(NerioTest::rowKeepers(rowOf, 60, {0, 1, 2}, 2)))
        routes.push_back(keyOf(number).outIs({{static_cast<U16>(50 + routes.size()), 0x11}}));
    return routes;
}

TEST_F(MulticastAgentTest, ARouteWithoutAPlaceIsRefusedAndNothingIsWritten) {
    auto const routes = crowdedRoutes();
    ASSERT_EQ(routes.size(), 4u);
    for (std::size_t i = 0; i < 3; ++i)
        ASSERT_TRUE(added(routes[i]));
    auto const writes = target.bus->writes();
    auto const refusal = add(routes[3]);
    ASSERT_TRUE(refusal);
    EXPECT_EQ(refusal->reason, Refusal::Reason::noPlace);
    EXPECT_THAT(refusal->text, testing::MatchesRegex("no place in sg for \\(.*, .*\\) in VLAN 9"));
    EXPECT_EQ(target.bus->writes(), writes);
    EXPECT_THAT(target.entries(), ElementsAre(3u, 0u, 6u));
    EXPECT_TRUE(added(MulticastRoute(routes[1]).outIs({{99, 0x20}}))) << "one that is there needs no place";
    removed(routes[1]);
    EXPECT_TRUE(added(routes[3]));
    EXPECT_EQ(copies(routes[3]), copiesOf(routes[3]));
}

TEST_F(MulticastAgentTest, FillsTheRowsOfSourcesAndLosesNothingAtTheLimit) {
    std::vector<MulticastRoute> placed;
    std::optional<Refusal> refusal;
    for (U32 i = 0; !refusal && i < 25000; ++i) {
        auto const route =
            fromSource(0x0A000000 + i * 0x9E3779B1u, 0xE0000000 + i % 5000, static_cast<U16>(1 + i % 7))
                .outIs({{static_cast<U16>(2 + i % 16), 0xFF}});
        refusal = add(route);
        if (!refusal) placed.push_back(route);
    }
    ASSERT_TRUE(refusal) << "24576 rows have no room for 25000";
    EXPECT_EQ(refusal->reason, Refusal::Reason::noPlace);
    EXPECT_GT(placed.size(), 24576u * 88 / 100);
    EXPECT_THAT(target.entries(), ElementsAre(placed.size(), 0u, 16u * 8u));
    EXPECT_EQ(target.tables.sources->hashConvertor()->rowsInUse(), placed.size());
    for (std::size_t i = 0; i < placed.size(); i += 97)
        ASSERT_EQ(copies(placed[i]), copiesOf(placed[i]));
}

TEST_F(MulticastAgentTest, WhenTheBusFailsARouteThatWasToBeAddedIsNotThere) {
    auto const there = fromAny(someGroup, 20).outIs({{30, 0x3}});
    auto const route = fromAny(someGroup, 21).outIs({{30, 0x6}, {31, 0x80}});
    add(there);
    auto const before = target.chip->state();
    for (U32 i = 0;; ++i) {
        target.bus->failAfter(i);
        bool const fails = !failureOf<NerioSwitchApi::BusException>([&] { add(route); }).empty();
        target.bus->heal();
        if (!fails) {
            EXPECT_GT(i, 15u);
            break;
        }
        EXPECT_FALSE(target.agent->route(route.key()));
        EXPECT_FALSE(removed(route)) << "which does what was left";
        EXPECT_THAT(target.entries(), ElementsAre(0u, 1u, 2u));
        ASSERT_EQ(target.chip->state(), before) << i;
    }
    EXPECT_EQ(copies(route), copiesOf(route));
}

TEST_F(MulticastAgentTest, AfterAFailureThatPassesNothingIsLeftAtOnce) {
    auto const route = fromAny(someGroup, 21).outIs({{30, 0x6}});
    for (U32 i = 0; i < 16; ++i) {
        target.bus->failAfter(i, 1);
        EXPECT_THROW(add(route), NerioSwitchApi::BusException) << i;
        EXPECT_THAT(target.entries(), Each(0u));
        ASSERT_EQ(target.chip->state(), empty) << i;
    }
}

/** At each register write of a change, in another group or in the same one. */
TEST_F(MulticastAgentTest, WhenTheBusFailsARouteThatWasToChangeLeadsWhereItLed) {
    takeAllGroups();
    auto const old = ofOwnGroup(3);
    for (auto const& changed : {MulticastRoute(old).outIs({{104, 0x1}, {50, 0x6}}),
                                MulticastRoute(old).outIs({{77, 0x1}, {78, 0x3}})}) {
        auto const before = target.chip->state();
        for (U32 i = 0;; ++i) {
            target.bus->failAfter(i);
            bool const fails = !failureOf<NerioSwitchApi::BusException>([&] { add(changed); }).empty();
            target.bus->heal();
            bool const isOld = target.agent->route(old.key()) == old;
            target.agent->routeDel({});
            ASSERT_EQ(copies(old), copiesOf(isOld ? old : changed)) << i;
            ASSERT_EQ(target.chip->state() == before, isOld) << i;
            if (!fails) {
                EXPECT_FALSE(isOld);
                EXPECT_GT(i, 15u);
                break;
            }
        }
        EXPECT_TRUE(added(old));
        EXPECT_EQ(target.agent->vlanRowsInUse(), 16u);
        EXPECT_THAT(target.entries(), ElementsAre(0u, 16u, 16u));
    }
}

TEST_F(MulticastAgentTest, WhenTheBusFailsARemovalIsDoneLater) {
    for (U32 i = 0; i < 12; ++i) {
        ASSERT_TRUE(added(ofOwnGroup(1)));
        target.bus->failAfter(i);
        EXPECT_THROW(removed(ofOwnGroup(1)), NerioSwitchApi::BusException) << i;
        target.bus->heal();
        EXPECT_FALSE(target.agent->route(ofOwnGroup(1).key()));
        ASSERT_TRUE(added(ofOwnGroup(2)));
        ASSERT_TRUE(removed(ofOwnGroup(2)));
        ASSERT_EQ(target.chip->state(), empty) << i;
    }
    expectNothing();
}

TEST_F(MulticastAgentTest, ARouteThatIsToldAgainAfterARestartIsNotWritten) {
    std::vector<MulticastRoute> routes;
    for (U16 i = 0; i < 16; ++i) {
        routes.push_back(ofOwnGroup(i));
        routes.push_back(fromSource(someSource + i, someGroup, i).outIs({{60, 0xF0}}).toCpuIs(i % 2 == 0));
    }
    for (auto const& route : routes)
        ASSERT_TRUE(added(route));
    auto const writes = target.bus->writes();
    target.start(StartMode::warm);
    EXPECT_EQ(target.agent->routes(), 0u);
    for (auto route = routes.rbegin(); route != routes.rend(); ++route) {
        EXPECT_FALSE(target.agent->route(route->key()));
        EXPECT_TRUE(added(*route));
        EXPECT_EQ(target.agent->route(route->key()), *route);
    }
    target.agent->othersDel();
    EXPECT_EQ(target.bus->writes(), writes);
    EXPECT_EQ(target.agent->routes(), routes.size());
    EXPECT_TRUE(add(ofOwnGroup(16)));
}

TEST_F(MulticastAgentTest, WhatNobodyToldAgainForwardsUntilOthersGo) {
    takeAllGroups();
    auto const source = fromSource(someSource, someGroup, 20).outIs({{60, 0xF0}});
    add(source);
    auto const flow = SGKey::unicastKey(Lanvo::IpAddr::fromHostOrder(1), Lanvo::IpAddr::fromHostOrder(2), 3);
    target.tables.sources->entryIs(flow, SGResult().dataIs(SGResult::Unicast().l3LagIndexIs(4)));
    target.start(StartMode::warm);
    EXPECT_TRUE(add(ofOwnGroup(16))) << "groups of older routes are not given away";
    auto const moved = ofOwnGroup(3).outIs({{109, 0x1}});
    EXPECT_TRUE(added(moved));
    EXPECT_EQ(copies(moved), copiesOf(moved));
    EXPECT_EQ(copies(ofOwnGroup(7)), copiesOf(ofOwnGroup(7)));
    EXPECT_EQ(copies(source), copiesOf(source));
    EXPECT_FALSE(removed(source)) << "nobody told it";
    target.agent->othersDel();
    EXPECT_THAT(target.entries(), ElementsAre(1u, 1u, 1u));
    EXPECT_TRUE(target.tables.sources->entryHas(flow)) << "which is no multicast route";
    EXPECT_EQ(copies(moved), copiesOf(moved));
    EXPECT_TRUE(added(ofOwnGroup(16)));
}

TEST_F(MulticastAgentTest, VlansThatAKilledProcessLeftBehindGo) {
    auto const route = fromAny(someGroup, 20).outIs({{30, 0x3}});
    for (U32 i = 0; i < 30; ++i) {
        target.bus->failAfter(i);
        failureOf<NerioSwitchApi::BusException>([&] { add(route); });
        target.bus->heal();
        target.start(StartMode::warm);
        target.agent->othersDel();
        EXPECT_THAT(target.entries(), Each(0u));
        ASSERT_EQ(target.chip->state(), empty) << i;
    }
}

/** At each register write of a change, in another group or in the same one. */
TEST_F(MulticastAgentTest, AProcessKilledInTheMiddleOfAChangeLeavesNothingBehind) {
    for (U16 const others : {U16{1}, U16{15}}) {
        auto const old = ofOwnGroup(0);
        auto const changed = MulticastRoute(old).outIs({{77, 0x1}, {78, 0x3}});
        auto const isToldAgain = [&](MulticastRoute const& route) {
            target.start(StartMode::warm);
            for (U16 i = 1; i <= others; ++i)
                EXPECT_TRUE(added(ofOwnGroup(i)));
            EXPECT_TRUE(added(route));
            target.agent->othersDel();
        };
        isToldAgain(old);
        bool fails = true;
        for (U32 i = 0; fails && !HasFailure(); ++i) {
            target.bus->failAfter(i);
            fails = !failureOf<NerioSwitchApi::BusException>([&] { add(changed); }).empty();
            target.bus->heal();
            isToldAgain(changed);
            EXPECT_EQ(copies(changed), copiesOf(changed)) << i;
            EXPECT_EQ(copies(ofOwnGroup(1)), copiesOf(ofOwnGroup(1))) << i;
            EXPECT_THAT(target.entries(), ElementsAre(0u, others + 1u, others + 2u)) << i;
            removed(changed);
            EXPECT_TRUE(added(old));
        }
    }
}

TEST_F(MulticastAgentTest, RowsThatNoAgentWouldWriteAreTakenOver) {
    auto const route = fromAny(someGroup, 20).outIs({{30, 0x2}});
    auto const vlans = NerioSwitchTable::VlanGroupResult().groupIs(0, 31).groupIs(1, 30).groupIs(2, 31);
    target.tables.vlanGroups->entryIs({1, 1}, NerioSwitchTable::VlanGroupResult(vlans).numVlansIs(3));
    target.tables.groups->entryIs({{{}, 32}, route.key().group(), 20},
                                  NerioSwitchTable::StarGResult().vlanGroupIdIs(17).portMaskIs(0x6));
    target.start(StartMode::warm);
    EXPECT_TRUE(added(route));
    EXPECT_EQ(copies(route), copiesOf(route));
    target.agent->othersDel();
    EXPECT_THAT(target.entries(), ElementsAre(0u, 1u, 1u));
    removed(route);
    expectNothing();
}

TEST(MulticastProfileTest, PortsNeedVlanGroupsOfTheirOwn) {
    auto const failure = [](auto const& profile) {
        return failureOf<Belmo::RangeException>([&] { Agent::MulticastAgent::checkProfile(*profile); });
    };
    EXPECT_EQ(failure(NerioTest::profileOfPortPairs(52)), "");
    EXPECT_EQ(failure(NerioSwitch::profilePreset("default")),
              "multicast routes take egress pipes of at most two ports; port 2 is the third one of pipe 0");
    auto profile = NerioTest::profileOfPortPairs(8);
    profile->layouts[NerioSwitch::TableLayoutEnum::tableLayoutEgress].processors = 3;
    EXPECT_EQ(failure(profile),
              "multicast routes take an egress processor for each egress pipe; there are 3 for 4");
    profile = NerioTest::profileOfPortPairs(8);
    profile->numPorts = 9;
    EXPECT_EQ(failure(profile), "multicast routes take an egress pipe for each port; port 8 has none");
}

}  // namespace
