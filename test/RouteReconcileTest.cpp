// An agent over stages that a warm restart filled: it claims what it wants, and writes the differences alone.
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "RouteFixture.h"

namespace {

using namespace NerioTest;
using Agent::RouteState;
using NerioSwitchTable::LpmResult;

constexpr std::size_t registersOfRow = 5;
constexpr std::size_t registersOfDirectRow = 2;

class RouteReconcileTest : public testing::Test {
protected:
    Agent::RouteAgent& agent() { return ladder.agent(); }
    std::size_t processors() { return ladder.stage(0).profileConvertorPtr()->hwTables().size(); }
    /** The new agent is told of the whole list, and that it is complete. */
    void claimAll() {
        for (auto const& [key, nexthop] : ladder.routes)
            agent().routeIs(key, nexthop);
        agent().reconciled();
    }
    void addRandom(std::size_t count, U64 seed) {
        RandomRoutes random(seed, 4, evenLengths);
        for (auto const& key : random.distinct(count))
            ladder.add(key, random.nexthop());
    }

    ListedLadder ladder;
};

TEST_F(RouteReconcileTest, AnAgentOverEmptyStagesHasNothingToReconcile) {
    EXPECT_FALSE(agent().reconciling());
    agent().reconciled();
    ladder.add(route(0x0A010200, 24), 1);
    EXPECT_EQ(ladder.fault(), "");
    agent().reconciled();
    EXPECT_EQ(ladder.fault(), "");
}

TEST_F(RouteReconcileTest, NothingIsWrittenWhileRoutesAreClaimed) {
    ladder.add(route(0x0A010200, 24), 1);
    ladder.add(route(0x0A000000, 8), 1);
    ladder.restart();
    EXPECT_TRUE(agent().reconciling());
    EXPECT_EQ(agent().routes(), 0u);
    agent().routeIs(route(0x0A010200, 24), 2);
    agent().routeIs(route(0xC0000000, 8), 1);
    agent().routeIs(route(0xC0000200, 24), 1);
    EXPECT_EQ(ladder.takeWriteCount(), 0u);
    for (auto const& key : {route(0x0A010200, 24), route(0xC0000000, 8), route(0xC0000200, 24)})
        EXPECT_EQ(agent().routeState(key), RouteState::waiting);
    EXPECT_EQ(agent().counts().waitingRoutes, 3u);
    EXPECT_EQ(agent().placedMatch(0, Lanvo::IpAddr::fromHostOrder(0x0A010203)), std::nullopt);
    EXPECT_EQ(agent().match(0, Lanvo::IpAddr::fromHostOrder(0x0A010203)),
              (Agent::Route{route(0x0A010200, 24), 2}));
    EXPECT_EQ(agent().retryWaiting(), 0u);
    EXPECT_EQ(ladder.takeWriteCount(), 0u);
    agent().reconciled();
    EXPECT_FALSE(agent().reconciling());
    ladder.routes = {{route(0x0A010200, 24), 2}, {route(0xC0000000, 8), 1}, {route(0xC0000200, 24), 1}};
    EXPECT_EQ(ladder.fault(), "");
}

class RouteReconcileVrfsTest : public testing::TestWithParam<U32> {};
INSTANTIATE_TEST_SUITE_P(, RouteReconcileVrfsTest, testing::Values(4, 8, 32));

TEST_P(RouteReconcileVrfsTest, TheSameRoutesInAnotherOrderWriteNothing) {
    ListedLadder ladder(GetParam());
    RandomRoutes random(8, static_cast<U8>(GetParam()), evenLengths);
    auto all = random.distinct(4000);
    for (auto const& key : all)
        ladder.add(key, random.nexthop());
    // A stage that is too small for its routes.
    for (U32 i = 0; i < 3000; ++i)
        ladder.add(routeUnder(route(i * 0x5BD1E << 11, 21), i % 7), 1);
    EXPECT_EQ(ladder.fault(), "");
    std::size_t const waiting = ladder.agent().counts().waitingRoutes;
    EXPECT_GT(waiting, 900u);
    ladder.restart();
    for (auto const& key : all)
        ladder.agent().routeIs(key, ladder.routes.at(key));
    for (auto const& [key, nexthop] : ladder.routes)
        ladder.agent().routeIs(key, nexthop);
    ladder.agent().reconciled();
    EXPECT_EQ(ladder.takeWriteCount(), 0u);
    EXPECT_EQ(ladder.agent().counts().waitingRoutes, waiting);
    EXPECT_EQ(ladder.fault(), "");
    ladder.restart();
    ladder.agent().reconciled();
    ladder.routes.clear();
    EXPECT_EQ(ladder.fault(), "");
}

TEST_F(RouteReconcileTest, AnotherAgentOverTheSameTablesWritesNothing) {
    addRandom(3000, 9);
    ladder.renewAgent();
    EXPECT_TRUE(agent().reconciling());
    claimAll();
    EXPECT_EQ(ladder.fault(), "");
    ladder.renewAgent();
    ladder.takeWriteCount();
    claimAll();
    EXPECT_EQ(ladder.takeWriteCount(), 0u);
    EXPECT_EQ(ladder.fault(), "");
}

TEST_F(RouteReconcileTest, DifferencesAloneAreWritten) {
    addRandom(500, 10);
    auto const kept = route(0x0A010200, 24);
    auto const changed = route(0x0A010300, 24);
    auto const removed = route(0x0A010400, 24);
    auto const joined = route(0x0A010580, 25);
    auto const shortOne = route(0xF0000000, 9);
    for (auto const& key : {kept, changed, removed, route(0x0A010500, 24), shortOne})
        ladder.add(key, 1);
    struct Case {
        char const* name;
        std::size_t writes;
        std::function<void()> change;
    };
    std::size_t const row = registersOfRow * processors();
    Case const cases[] = {
        {"another next hop", row, [&] { ladder.routes[changed] = 2; }},
        {"one route less", row, [&] { ladder.routes.erase(removed); }},
        {"one more under a key", row, [&] { ladder.routes[joined] = 2; }},
        {"one less under a key", row, [&] { ladder.routes.erase(joined); }},
        {"four keys of the direct stage", 4 * registersOfDirectRow * processors(),
         [&] { ladder.routes[shortOne] = 2; }},
        {"four keys less", 4 * registersOfDirectRow * processors(), [&] { ladder.routes.erase(shortOne); }},
        {"nothing", 0, [] {}},
    };
    for (auto const& [name, writes, change] : cases) {
        SCOPED_TRACE(name);
        change();
        ladder.restart();
        claimAll();
        EXPECT_EQ(ladder.takeWriteCount(), writes);
        EXPECT_EQ(ladder.fault(), "");
    }
}

TEST_F(RouteReconcileTest, WhatNobodyClaimsIsSweptAndMakesRoomForWhatIsNew) {
    // Two lists of keys, of which stage 23 can hold one.
    for (U32 i = 0; i < 1000; ++i)
        ladder.add(route(i * 0x5BD1E << 11, 21), 1);
    ladder.restart();
    ladder.routes.clear();
    for (U32 i = 1000; i < 2000; ++i)
        ladder.routes[route(i * 0x5BD1E << 11, 21)] = 1;
    claimAll();
    EXPECT_EQ(ladder.fault(), "");
    EXPECT_LT(agent().counts(4).waitingKeys, 50u);
    ladder.restart();
    agent().reconciled();
    ladder.routes.clear();
    EXPECT_EQ(ladder.fault(), "");
}

TEST_F(RouteReconcileTest, RoutesMayGoAgainBeforeTheListIsComplete) {
    addRandom(300, 11);
    ladder.restart();
    auto const all = ladder.routes;
    for (auto const& [key, nexthop] : all)
        ladder.add(key, nexthop);
    for (auto const& key : {route(0xC0000200, 24), route(0xC0000000, 10)}) {
        ladder.add(key, 1);
        EXPECT_TRUE(ladder.del(key));
        EXPECT_FALSE(ladder.del(key));
    }
    for (auto const& [key, nexthop] : all)
        EXPECT_TRUE(ladder.del(key));
    EXPECT_EQ(agent().routes(), 0u);
    ladder.add(route(0xC0000200, 24), 1);
    agent().routeDelAll();
    ladder.routes.clear();
    for (auto const& [key, nexthop] : all)
        ladder.add(key, nexthop);
    agent().reconciled();
    EXPECT_EQ(ladder.takeWriteCount(), 0u);
    EXPECT_EQ(ladder.fault(), "");
}

TEST_F(RouteReconcileTest, EntriesThatNoRoutesMakeAreBroughtInLine) {
    auto const claimed = route(0x0A010200, 24);
    ladder.stage(4).entryIs(claimed, LpmResult().cellResultIs(0, routeCell(1, 24)).cpuTrapIs(true));
    ladder.stage(4).entryIs(route(0x0A010300, 24), {});
    ladder.restart();
    ladder.routes[claimed] = 1;
    claimAll();
    EXPECT_EQ(ladder.fault(), "");
}

TEST_F(RouteReconcileTest, EntriesThatFoundNoRowAreTakenOutOfTheStage) {
    ListedLadder wide(32);
    for (auto const& key : crowdedKeys(wide, 1, 100, 32, 32))
        wide.stage(1).entryIs(key, LpmResult().cellResultIs(0, routeCell(1, 15)));
    std::size_t const placed = wide.stage(1).hashConvertor()->rowsInUse();
    EXPECT_LT(placed, 100u);
    wide.takeWriteCount();
    wide.renewAgent();
    EXPECT_EQ(wide.takeWriteCount(), 0u);
    EXPECT_EQ(wide.stage(1).entries().size(), placed);
    EXPECT_EQ(wide.stage(1).cachedItems(), placed);
    wide.agent().reconciled();
    EXPECT_EQ(wide.fault(), "");
}

TEST_F(RouteReconcileTest, AReconciliationThatFailedIsMadeUpForByTheNext) {
    addRandom(400, 12);
    auto const before = ladder.routes;
    int failures = 0;
    for (U64 write = 1; write < 4000; write = 3 * write + 1) {
        SCOPED_TRACE(write);
        ladder.restart();
        ladder.routes.clear();
        RandomRoutes random(write, 4, evenLengths);
        for (auto const& [key, nexthop] : before) {
            if (random.nexthop() % 2 == 0) ladder.routes[key] = nexthop;
        }
        for (auto const& key : random.distinct(200))
            ladder.routes[key] = random.nexthop();
        ladder.faulty().faultIs(Chip::Fault::fail, ladder.faulty().writes() + write);
        try {
            claimAll();
        } catch (NerioSwitchApi::BusException const&) {
            ++failures;
            EXPECT_TRUE(agent().reconciling());
            agent().reconciled();
        }
        ladder.faulty().faultIs(Chip::Fault::none, 0);
        EXPECT_EQ(ladder.fault(), "");
    }
    EXPECT_GE(failures, 6);
}

TEST_F(RouteReconcileTest, RandomListsBeforeAndAfter) {
    for (U64 seed = 20; seed < 26; ++seed) {
        addRandom(1500, seed);
        EXPECT_EQ(ladder.fault(), "");
        ladder.restart();
        std::mt19937_64 random(seed);
        for (auto route = ladder.routes.begin(); route != ladder.routes.end();) {
            auto const chance = random() % 4;
            if (chance == 0) route->second = 100;
            route = chance == 1 ? ladder.routes.erase(route) : std::next(route);
        }
        claimAll();
        EXPECT_EQ(ladder.fault(), "");
    }
}

}  // namespace
