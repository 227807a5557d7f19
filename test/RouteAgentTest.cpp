#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FailureText.h"
#include "RouteFixture.h"
#include "agent/RouteAgent.h"

namespace {

using namespace NerioTest;
using Agent::RouteAgent;
using Agent::RouteCounts;
using Agent::RouteStages;
using Agent::RouteState;
using Belmo::RangeException;
using Lanvo::IpAddr;
using NerioSwitch::LpmKey;
using NerioSwitch::NexthopIndexes;
using NerioSwitchTable::LpmResult;

class RouteAgentTest : public testing::Test {
protected:
    RouteAgent& agent() { return ladder.agent(); }
    LpmResult entry(std::size_t number, U32 address) {
        return ladder.stage(number).entry(route(address, static_cast<U8>(stageCases[number].baseLen)));
    }

    ListedLadder ladder;
};

TEST_F(RouteAgentTest, EveryLengthHasItsStage) {
    std::size_t const stages[] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 2, 2,
                                  2, 3, 3, 3, 4, 4, 4, 5, 5, 5, 6, 6, 6, 7, 7, 7};
    for (U8 length = 0; length <= 32; ++length) {
        EXPECT_EQ(RouteStages::numberOf(length), stages[length]) << U32{length};
        auto const key = route(0xC0A80000 & Lanvo::Prefix::mask(length), length);
        ladder.add(key, 100 + length);
        EXPECT_EQ(agent().counts(stages[length]).routes, 1u);
        EXPECT_EQ(agent().routeState(key), RouteState::placed);
        EXPECT_EQ(ladder.fault(), "");
        EXPECT_TRUE(ladder.del(key));
        EXPECT_EQ(ladder.fault(), "");
    }
}

TEST_F(RouteAgentTest, CellIIsTheOneForTheValueIOfTheTwoBitsBehindTheKey) {
    for (std::size_t number = 0; number < std::size(stageCases); ++number) {
        SCOPED_TRACE(stageCases[number].family);
        U32 const base = stageCases[number].baseLen;
        U32 const key = 0xAC100000 & Lanvo::Prefix::mask(static_cast<U8>(base));
        for (U32 cell = 0; cell < 4; ++cell)
            ladder.add(route(key | cell << (30 - base), static_cast<U8>(base + 2)), 200 + cell);
        auto const expected = LpmResult()
                                  .cellResultIs(0, routeCell(200, base + 2))
                                  .cellResultIs(1, routeCell(201, base + 2))
                                  .cellResultIs(2, routeCell(202, base + 2))
                                  .cellResultIs(3, routeCell(203, base + 2));
        EXPECT_EQ(entry(number, key), expected);
    }
}

TEST_F(RouteAgentTest, ACellBelongsToTheLongestRouteOfItsStageThatCoversIt) {
    // Of stage 26: /24, one half as /25, and of the other half one quarter as /26.
    auto const whole = route(0x0A010200, 24);
    auto const half = route(0x0A010200, 25);
    auto const quarter = route(0x0A0102C0, 26);
    ladder.add(quarter, 3);
    EXPECT_EQ(entry(4, 0x0A010200), LpmResult().cellResultIs(3, routeCell(3, 26)));
    ladder.add(whole, 1);
    EXPECT_EQ(entry(4, 0x0A010200), LpmResult()
                                        .cellResultIs(0, routeCell(1, 24))
                                        .cellResultIs(1, routeCell(1, 24))
                                        .cellResultIs(2, routeCell(1, 24))
                                        .cellResultIs(3, routeCell(3, 26)));
    ladder.add(half, 2);
    EXPECT_EQ(entry(4, 0x0A010200), LpmResult()
                                        .cellResultIs(0, routeCell(2, 25))
                                        .cellResultIs(1, routeCell(2, 25))
                                        .cellResultIs(2, routeCell(1, 24))
                                        .cellResultIs(3, routeCell(3, 26)));
    EXPECT_EQ(ladder.stage(4).entries().size(), 1u);
    EXPECT_EQ(agent().counts(5), (RouteCounts{.routes = 3, .keys = 1}));
}

TEST_F(RouteAgentTest, AWithdrawnRouteLeavesItsCellsToTheNextShorterOneOfTheStage) {
    ladder.add(route(0x0A010200, 23), 9);  // of another stage: it takes no cell over
    ladder.add(route(0x0A010200, 24), 1);
    ladder.add(route(0x0A010200, 25), 2);
    ladder.add(route(0x0A010240, 26), 3);
    EXPECT_TRUE(ladder.del(route(0x0A010240, 26)));
    EXPECT_EQ(entry(4, 0x0A010200).cellResult(1), routeCell(2, 25));
    EXPECT_TRUE(ladder.del(route(0x0A010200, 25)));
    EXPECT_EQ(entry(4, 0x0A010200).cellResult(1), routeCell(1, 24));
    ladder.add(route(0x0A010240, 26), 4);
    EXPECT_TRUE(ladder.del(route(0x0A010200, 24)));
    EXPECT_EQ(entry(4, 0x0A010200), LpmResult().cellResultIs(1, routeCell(4, 26)));
    EXPECT_EQ(ladder.fault(), "");
    EXPECT_TRUE(ladder.del(route(0x0A010240, 26)));
    EXPECT_TRUE(ladder.stage(4).entries().empty());
    EXPECT_EQ(ladder.fault(), "");
}

TEST_F(RouteAgentTest, AShortRouteStandsUnderEveryKeyThatNoLongerOneCovers) {
    auto const cell = [&](U32 address) { return ladder.direct().entry(route(address, 11)).cellResult(); };
    ladder.add(route(0x0A000000, 8), 1);
    EXPECT_EQ(ladder.direct().entries().size(), 8u);
    ladder.add(route(0, 0), 2);
    EXPECT_EQ(ladder.direct().entries().size(), 2048u);
    ladder.add(route(0x0A200000, 11), 3);
    EXPECT_EQ(cell(0x0A000000), routeCell(1, 8));
    EXPECT_EQ(cell(0x0A200000), routeCell(3, 11));
    EXPECT_EQ(cell(0x0B000000), routeCell(2, 0));
    EXPECT_EQ(cell(0xFFE00000), routeCell(2, 0));
    EXPECT_EQ(agent().counts(0), (RouteCounts{.routes = 3, .keys = 2048}));
    EXPECT_TRUE(ladder.del(route(0x0A000000, 8)));
    EXPECT_EQ(cell(0x0A000000), routeCell(2, 0));
    EXPECT_EQ(cell(0x0A200000), routeCell(3, 11));
    EXPECT_TRUE(ladder.del(route(0x0A200000, 11)));
    EXPECT_EQ(cell(0x0A200000), routeCell(2, 0));
    EXPECT_TRUE(ladder.del(route(0, 0)));
    EXPECT_TRUE(ladder.direct().entries().empty());
    EXPECT_EQ(ladder.fault(), "");
}

TEST_F(RouteAgentTest, AnEqualRouteWritesNothingAndAnotherNextHopWritesItsKeysAlone) {
    ladder.add(route(0x0A010200, 24), 1);
    ladder.add(route(0x0A000000, 9), 1);
    ladder.takeWriteCount();
    ladder.add(route(0x0A010200, 24), 1);
    ladder.add(route(0x0A000000, 9), 1);
    EXPECT_EQ(ladder.takeWriteCount(), 0u);
    std::size_t const processors = ladder.stage(4).profileConvertorPtr()->hwTables().size();
    ladder.add(route(0x0A010200, 24), 2);
    EXPECT_EQ(ladder.takeWriteCount(), 5 * processors);
    ladder.add(route(0x0A000000, 9), 2);
    EXPECT_EQ(ladder.takeWriteCount(), std::size_t{4} * 2 * processors);
    EXPECT_EQ(ladder.fault(), "");
}

TEST_F(RouteAgentTest, ARouteThatIsHiddenWhollyCountsAsPlaced) {
    ladder.add(route(0x0A010200, 24), 1);
    ladder.add(route(0x0A010200, 25), 2);
    ladder.add(route(0x0A010280, 25), 3);
    ladder.takeWriteCount();
    ladder.add(route(0x0A010200, 24), 4);
    EXPECT_EQ(ladder.takeWriteCount(), 0u);
    EXPECT_EQ(agent().routeState(route(0x0A010200, 24)), RouteState::placed);
    EXPECT_EQ(ladder.fault(), "");
}

TEST_F(RouteAgentTest, VrfsDoNotMeet) {
    for (U8 vrf = 0; vrf < 4; ++vrf) {
        ladder.add(route(0x0A010200, 24, vrf), 10u + vrf);
        ladder.add(route(0x0A000000, 7, vrf), 20u + vrf);
    }
    EXPECT_EQ(ladder.fault(), "");
    EXPECT_TRUE(ladder.del(route(0x0A010200, 24, 2)));
    EXPECT_TRUE(ladder.del(route(0x0A000000, 7, 1)));
    EXPECT_EQ(agent().routes(), 6u);
    EXPECT_EQ(ladder.fault(), "");
}

TEST_F(RouteAgentTest, RefusesWhatTheChipCannotHoldBeforeAnythingIsStored) {
    auto const refusal = [&](LpmKey const& key, NexthopIndexes nexthop) {
        return failureOf<RangeException>([&] { agent().routeIs(key, nexthop); });
    };
    for (U8 const length : std::to_array<U8>({0, 8, 11, 12, 24, 32})) {
        auto const good = route(0, length);
        ladder.add(good, 0xFFF);
        ladder.takeWriteCount();
        EXPECT_EQ(refusal(good, 0x1000),
                  "NerioSwitchTable::EntryCellResult::nexthopIndexes > "
                  "NerioSwitchTable::EntryCellResult::maxNexthop not allowed");
        EXPECT_EQ(refusal(good, NexthopIndexes()),
                  "Agent::RouteAgent::nexthop == NerioSwitch::NexthopIndexes::null not allowed");
        EXPECT_EQ(refusal(route(0, length, 4), 1),
                  "Agent::RouteAgent::vrf >= ProfileInfo::numVrfs not allowed");
    }
    EXPECT_EQ(refusal({0, Lanvo::Prefix::null()}, 1),
              "Agent::RouteAgent::prefix == Lanvo::Prefix::null not allowed");
    EXPECT_EQ(failureOf<RangeException>([] { route(0x0A010201, 24); }),
              "Lanvo::Prefix::validAsPrefix != true not allowed");
    EXPECT_EQ(ladder.takeWriteCount(), 0u);
    EXPECT_EQ(ladder.fault(), "");
}

TEST_F(RouteAgentTest, KnowsNothingOfRoutesThatThereCannotBe) {
    ladder.add(route(0, 0), 1);
    for (auto const& key : {route(0, 0, 200), route(0, 24, 4), LpmKey(0, Lanvo::Prefix::null())}) {
        EXPECT_FALSE(agent().routeDel(key));
        EXPECT_EQ(agent().route(key), std::nullopt);
        EXPECT_EQ(agent().routeState(key), RouteState::absent);
    }
    EXPECT_EQ(agent().match(4, IpAddr()), std::nullopt);
    EXPECT_EQ(agent().placedMatch(200, IpAddr()), std::nullopt);
}

TEST_F(RouteAgentTest, WithdrawingARouteThatIsNotThereDoesNothing) {
    ladder.add(route(0x0A010200, 24), 1);
    ladder.takeWriteCount();
    for (auto const& key : {route(0x0A010200, 25), route(0x0A010300, 24), route(0, 0), route(0x0A010200, 23)})
        EXPECT_FALSE(agent().routeDel(key));
    EXPECT_EQ(agent().route(route(0x0A010200, 25)), std::nullopt);
    EXPECT_EQ(agent().routeState(route(0x0A010200, 25)), RouteState::absent);
    EXPECT_EQ(ladder.takeWriteCount(), 0u);
    EXPECT_EQ(ladder.fault(), "");
}

TEST_F(RouteAgentTest, FindsTheLongestRouteOfAnAddress) {
    auto const match = [&](U32 address) { return agent().match(0, IpAddr::fromHostOrder(address)); };
    EXPECT_EQ(match(0x0A010203), std::nullopt);
    for (U8 length = 0; length <= 32; ++length) {
        auto const key = route(0x0A010203 & Lanvo::Prefix::mask(length), length);
        ladder.add(key, 100 + length);
        EXPECT_EQ(match(0x0A010203), (Agent::Route{key, 100 + length}));
        EXPECT_EQ(agent().placedMatch(0, IpAddr::fromHostOrder(0x0A010203)), match(0x0A010203));
    }
    EXPECT_EQ(match(0x0A010202), (Agent::Route{route(0x0A010202, 31), 131}));
    EXPECT_EQ(match(0x0A0102FF), (Agent::Route{route(0x0A010200, 24), 124}));
    EXPECT_EQ(match(0xFFFFFFFF), (Agent::Route{route(0, 0), 100}));
}

class RouteAgentVrfsTest : public testing::TestWithParam<U32> {};
INSTANTIATE_TEST_SUITE_P(, RouteAgentVrfsTest, testing::Values(4, 8, 32));

TEST_P(RouteAgentVrfsTest, RandomRoutesOfAllLengthsAndVrfs) {
    ListedLadder ladder(GetParam());
    auto const vrfs = static_cast<U8>(GetParam());
    RandomRoutes random(3, vrfs, evenLengths);
    auto const all = random.distinct(3000);
    for (auto const& key : all)
        ladder.add(key, random.nexthop());
    EXPECT_EQ(ladder.fault(), "");
    EXPECT_EQ(ladder.agent().routes(), all.size());
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (i % 3 != 0) ladder.del(all[i]);
        if (i % 3 == 2) ladder.add(all[i], random.nexthop());
    }
    EXPECT_EQ(ladder.fault(), "");
    for (auto const& key : all)
        ladder.del(key);
    EXPECT_TRUE(ladder.routes.empty());
    EXPECT_EQ(ladder.fault(), "");
    EXPECT_EQ(failureOf<RangeException>([&] { ladder.agent().routeIs(route(0, 24, vrfs), 1); }),
              "Agent::RouteAgent::vrf >= ProfileInfo::numVrfs not allowed");
}

TEST_P(RouteAgentVrfsTest, WithdrawingAllLeavesTheStagesEmpty) {
    ListedLadder ladder(GetParam());
    RandomRoutes random(4, static_cast<U8>(GetParam()), evenLengths);
    for (auto const& key : random.distinct(2000))
        ladder.add(key, random.nexthop());
    ladder.agent().routeDelAll();
    ladder.routes.clear();
    EXPECT_EQ(ladder.fault(), "");
    ladder.add(route(0x0A000000, 12), 1);
    EXPECT_EQ(ladder.fault(), "");
}

TEST_F(RouteAgentTest, AFailedWriteIsMadeUpForByTheSameCall) {
    LpmKey const keys[] = {route(0x0A000000, 9), route(0x0A010200, 24), route(0xC0000201, 32)};
    for (auto const& key : keys) {
        SCOPED_TRACE(Sorn::text(key));
        for (U32 const nexthop : {1u, 2u}) {
            ladder.faulty().faultIs(Chip::Fault::fail, ladder.faulty().writes() + 3);
            EXPECT_THROW(ladder.add(key, nexthop), NerioSwitchApi::BusException);
            EXPECT_EQ(agent().route(key), NexthopIndexes(nexthop));
            ladder.add(key, nexthop);
            EXPECT_EQ(ladder.fault(), "");
        }
        ladder.faulty().faultIs(Chip::Fault::fail, ladder.faulty().writes() + 3);
        EXPECT_THROW(ladder.del(key), NerioSwitchApi::BusException);
        EXPECT_EQ(agent().route(key), std::nullopt);
        EXPECT_FALSE(ladder.del(key));
        EXPECT_EQ(ladder.fault(), "");
    }
    ladder.restart();
    EXPECT_EQ(ladder.fault(), "");
}

TEST_F(RouteAgentTest, ARouteMayComeBackAfterItsWithdrawalFailed) {
    for (auto const& key : {route(0x0A000000, 9), route(0x0A010200, 24)}) {
        ladder.add(key, 1);
        ladder.faulty().faultIs(Chip::Fault::fail, ladder.faulty().writes() + 1);
        EXPECT_THROW(ladder.del(key), NerioSwitchApi::BusException);
        ladder.add(key, 1);
        EXPECT_EQ(ladder.fault(), "");
    }
}

TEST(RouteAgentDeathTest, StagesMustBeUp) {
    EXPECT_DEATH(RouteAgent{RouteStages::made()}, "table && table->initialized\\(\\)");
    EXPECT_DEATH(RouteAgent{RouteStages()}, "table && table->initialized\\(\\)");
}

}  // namespace
