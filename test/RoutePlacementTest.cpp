// Routes for which a stage has no room: they wait, and take the rows that become free.
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <rapidcheck.h>
#include <set>

#include "RouteFixture.h"

namespace {

using namespace NerioTest;
using Agent::RouteState;
using NerioSwitch::LpmKey;

constexpr U32 vrfs = 32;
/** Rows of each way that crowded keys hash to, and keys in them: half of them have to wait. */
constexpr U32 crowdRows = 40;
constexpr std::size_t crowd = 160;

/** A ladder whose stages are slow to come up, for many cases; each leaves it empty. */
ListedLadder& sharedLadder() {
    static ListedLadder ladder(vrfs);
    return ladder;
}

std::vector<LpmKey> const& crowdOf(std::size_t number) {
    static std::map<std::size_t, std::vector<LpmKey>> crowds;
    auto& keys = crowds[number];
    U32 const rows = stageCases[number].rowsPerWay == 1024 ? crowdRows : 2 * crowdRows;
    if (keys.empty()) {
        keys = crowdedKeys(sharedLadder(), number, stageCases[number].rowsPerWay == 1024 ? crowd : 2 * crowd,
                           rows, vrfs);
    }
    return keys;
}

class RoutePlacementTest : public testing::TestWithParam<std::size_t> {
protected:
    void TearDown() override {
        ladder.agent().observerIs({});
        ladder.agent().routeDelAll();
        ladder.routes.clear();
        EXPECT_EQ(ladder.fault(), "");
    }
    std::size_t number() const { return GetParam(); }
    std::string fault() { return stageFault(ladder, number(), ladder.routes); }
    std::vector<LpmKey> routesThat(RouteState state) {
        std::vector<LpmKey> found;
        for (auto const& [key, nexthop] : ladder.routes) {
            if (ladder.agent().routeState(key) == state) found.push_back(key);
        }
        return found;
    }
    void addCrowd() {
        for (auto const& key : crowdOf(number()))
            ladder.add(key, 7);
    }

    ListedLadder& ladder = sharedLadder();
};
INSTANTIATE_TEST_SUITE_P(, RoutePlacementTest, testing::Range<std::size_t>(0, std::size(stageCases)),
                         [](auto const& param) { return std::string(stageCases[param.param].family); });

TEST_P(RoutePlacementTest, RoutesWithoutARowWaitAndAreInNoTable) {
    addCrowd();
    EXPECT_EQ(fault(), "");
    auto const waiting = routesThat(RouteState::waiting);
    ASSERT_FALSE(waiting.empty());
    EXPECT_EQ(ladder.agent().counts(number() + 1).waitingKeys, waiting.size());
    EXPECT_EQ(ladder.agent().counts().waitingRoutes, waiting.size());
    ladder.takeWriteCount();
    for (auto const& route : waiting)
        ladder.add(route, 8);  // another next hop
    EXPECT_EQ(ladder.takeWriteCount(), 0u);
    EXPECT_EQ(fault(), "");
    for (auto const& route : waiting)
        ladder.del(route);
    EXPECT_EQ(ladder.takeWriteCount(), 0u);
    EXPECT_EQ(fault(), "");
    EXPECT_TRUE(routesThat(RouteState::waiting).empty());
}

TEST_P(RoutePlacementTest, AStageTellsTheRowsOfAKeyAndWhetherThereIsRoom) {
    auto& stage = ladder.stage(number());
    auto const& helper = static_cast<NerioSwitchTable::LpmBaseHelper const&>(*stage.helper());
    for (auto const& key : crowdOf(number())) {
        auto const item = stage.createHashEntry(key, false);
        EXPECT_EQ(helper.rowsOf(key), (Dovra::Cuckoo::Rows{static_cast<U16>(item->getHash(0)),
                                                           static_cast<U16>(item->getHash(1))}));
        EXPECT_TRUE(stage.hashConvertor()->hasRoom(helper.rowsOf(key)));
    }
    U64 const failures = stage.hashConvertor()->failedPlacements();
    addCrowd();
    ladder.takeWriteCount();
    for (auto const& route : routesThat(RouteState::waiting))
        EXPECT_FALSE(stage.hashConvertor()->hasRoom(helper.rowsOf(route)));
    ladder.del(routesThat(RouteState::waiting).front());
    EXPECT_EQ(ladder.takeWriteCount(), 0u);
    EXPECT_EQ(stage.hashConvertor()->failedPlacements(), failures);
}

TEST_P(RoutePlacementTest, AFreedRowGoesToAKeyThatWaits) {
    addCrowd();
    while (!routesThat(RouteState::waiting).empty()) {
        auto const before = ladder.agent().counts(number() + 1);
        ladder.del(routesThat(RouteState::placed).front());
        auto const after = ladder.agent().counts(number() + 1);
        ASSERT_EQ(fault(), "");
        ASSERT_TRUE(after.waitingKeys == before.waitingKeys || after.waitingKeys + 1 == before.waitingKeys);
    }
}

TEST_P(RoutePlacementTest, AllRoutesOfAKeyWaitAndArePlacedTogether) {
    for (U32 route = 0; route < 7; ++route) {
        for (auto const& key : crowdOf(number()))
            ladder.add(routeUnder(key, route), 100 + route);
        ASSERT_EQ(fault(), "");
    }
    EXPECT_EQ(ladder.agent().counts(number() + 1).waitingRoutes,
              7 * ladder.agent().counts(number() + 1).waitingKeys);
    for (U32 route = 7; route-- > 0;) {
        for (auto const& key : crowdOf(number()))
            ladder.del(routeUnder(key, route));
        ASSERT_EQ(fault(), "");
    }
}

TEST_P(RoutePlacementTest, TheObserverIsToldOfRoutesThatWaitAndThatWaitNoLonger) {
    std::set<LpmKey> waiting;
    bool isTold = true;
    ladder.agent().observerIs([&](LpmKey const& route, RouteState state) {
        bool const changed =
            state == RouteState::waiting ? waiting.insert(route).second : waiting.erase(route) == 1;
        isTold = isTold && changed && ladder.agent().routeState(route) == state;
    });
    auto const& keys = crowdOf(number());
    for (auto const& key : keys) {
        ladder.add(routeUnder(key, 0), 1);
        ladder.add(routeUnder(key, 5), 2);
    }
    auto const agrees = [&] {
        auto const found = routesThat(RouteState::waiting);
        return std::equal(found.begin(), found.end(), waiting.begin(), waiting.end());
    };
    EXPECT_FALSE(waiting.empty());
    EXPECT_TRUE(agrees());
    for (auto const& key : keys) {
        for (U32 const route : {5u, 0u}) {
            waiting.erase(routeUnder(key, route));  // of routes that are gone there is nothing to tell
            ladder.del(routeUnder(key, route));
            ASSERT_TRUE(agrees());
        }
    }
    EXPECT_TRUE(isTold);
}

TEST_P(RoutePlacementTest, PacketsOfAWaitingRouteFallToTheNextShorterOneThatIsPlaced) {
    addCrowd();
    ladder.add(route(0, 0), 1);
    for (U8 vrf = 1; vrf < vrfs; ++vrf)
        ladder.add(route(0, 0, vrf), 1);
    for (auto const& [key, nexthop] : RouteList(ladder.routes)) {
        if (key.prefix().len() == 0) continue;
        auto const address = key.prefix().address();
        EXPECT_EQ(ladder.agent().match(key.vrf(), address), (Agent::Route{key, nexthop}));
        bool const isPlaced = ladder.agent().routeState(key) == RouteState::placed;
        EXPECT_EQ(ladder.agent().placedMatch(key.vrf(), address),
                  (isPlaced ? Agent::Route{key, nexthop} : Agent::Route{route(0, 0, key.vrf()), 1}));
    }
}

TEST_P(RoutePlacementTest, WithdrawingAllWritesEachPlacedRowOnce) {
    addCrowd();
    std::size_t const rows = routesThat(RouteState::placed).size();
    std::size_t const processors = ladder.stage(number()).profileConvertorPtr()->hwTables().size();
    ladder.takeWriteCount();
    ladder.agent().routeDelAll();
    ladder.routes.clear();
    EXPECT_EQ(ladder.takeWriteCount(), rows * processors * 5);
    EXPECT_EQ(ladder.fault(), "");
}

TEST_P(RoutePlacementTest, RowsThatOthersTakeAndFreeAreTriedOnDemand) {
    auto& stage = ladder.stage(number());
    auto const keys = crowdOf(number());
    std::size_t const others = keys.size() / 4;
    auto const other =
        NerioSwitchTable::LpmResult().cellResultIs(0, routeCell(1, stageCases[number()].baseLen));
    for (std::size_t i = 0; i < others; ++i)
        stage.entryIs(keys[i], other);
    for (std::size_t i = others; i < keys.size(); ++i)
        ladder.add(keys[i], 7);
    auto const noneFindsARow = [&] {
        auto const waiting = routesThat(RouteState::waiting);
        return std::all_of(waiting.begin(), waiting.end(),
                           [&](auto const& key) { return findsNoRow(stage, key, other); });
    };
    EXPECT_TRUE(noneFindsARow());
    // Rows of ours that become free are found although keys of others lead to them.
    for (std::size_t i = 0; i < keys.size() / 4; ++i) {
        ladder.del(routesThat(RouteState::placed).front());
        ASSERT_TRUE(noneFindsARow());
    }
    std::size_t const waiting = routesThat(RouteState::waiting).size();
    ASSERT_NE(waiting, 0u);
    for (std::size_t i = 0; i < others; ++i) {
        stage.entryDel(keys[i]);
        stage.hashItemDel(keys[i]);  // one that had no row
    }
    EXPECT_EQ(routesThat(RouteState::waiting).size(), waiting);
    std::size_t const placed = ladder.agent().retryWaiting();
    EXPECT_GT(placed, 0u);
    EXPECT_EQ(routesThat(RouteState::waiting).size(), waiting - placed);
    EXPECT_EQ(fault(), "");
    EXPECT_EQ(ladder.agent().retryWaiting(), 0u);
}

TEST_P(RoutePlacementTest, AFailedWriteLosesNoRouteAndNoRow) {
    addCrowd();
    std::mt19937_64 random(5);
    auto const& keys = crowdOf(number());
    std::map<LpmKey, RouteState> told;
    for (auto const& [key, nexthop] : ladder.routes)
        told[key] = ladder.agent().routeState(key);
    ladder.agent().observerIs([&](LpmKey const& route, RouteState state) { told[route] = state; });
    int failures = 0;
    for (int round = 0; round < 300; ++round) {
        auto const& key = keys[random() % keys.size()];
        bool const isAdded = random() % 2 == 0;
        auto const change = [&] {
            if (isAdded) {
                ladder.add(key, static_cast<U32>(round + 100));
            } else {
                ladder.del(key);
            }
        };
        ladder.faulty().faultIs(Chip::Fault::fail, ladder.faulty().writes() + 1 + random() % 30);
        if (isAdded) told.try_emplace(key, RouteState::placed);
        if (!isAdded) told.erase(key);
        try {
            change();
        } catch (NerioSwitchApi::BusException const&) {
            ++failures;
            change();
        }
        if (round % 10 != 0) continue;
        ASSERT_EQ(fault(), "") << round;
    }
    ladder.faulty().faultIs(Chip::Fault::none, 0);
    EXPECT_GT(failures, 50);
    EXPECT_EQ(fault(), "");
    EXPECT_EQ(told.size(), ladder.routes.size());
    for (auto const& [key, state] : told)
        EXPECT_EQ(ladder.agent().routeState(key), state);
}

/** One step on one of a crowd's routes. */
struct Step {
    U16 key;
    U8 route;
    bool isAdded;
    U16 nexthop;
};

void PrintTo(Step const& step, std::ostream* stream) {
    *stream << (step.isAdded ? "add " : "del ") << step.key << '.' << U32{step.route};
}
std::ostream& operator<<(std::ostream& stream, Step const& step) {
    PrintTo(step, &stream);
    return stream;
}

TEST(RoutePlacement, AfterEachOfRandomStepsEveryCellHasItsOwnerAndNoWaitingKeyWouldFindARow) {
    auto& ladder = sharedLadder();
    auto const step = rc::gen::build<Step>(rc::gen::set(&Step::key, rc::gen::inRange<U16>(0, crowd)),
                                           rc::gen::set(&Step::route, rc::gen::inRange<U8>(0, 7)),
                                           rc::gen::set(&Step::isAdded),
                                           rc::gen::set(&Step::nexthop, rc::gen::inRange<U16>(100, 4096)));
    EXPECT_TRUE(rc::check([&] {
        std::size_t const number = *rc::gen::inRange<std::size_t>(0, std::size(stageCases));
        auto const& keys = crowdOf(number);
        // All of the crowd is there at first, so that every step happens in a full place.
        for (std::size_t i = 0; i < keys.size(); ++i)
            ladder.add(routeUnder(keys[i], static_cast<U32>(i % 7)), 1);
        for (auto const& [key, route, isAdded, nexthop] : *rc::gen::container<std::vector<Step>>(step)) {
            auto const changed = routeUnder(keys[key], route);
            if (isAdded) {
                ladder.add(changed, nexthop);
            } else {
                ladder.del(changed);
            }
            auto const fault = stageFault(ladder, number, ladder.routes);
            if (!fault.empty()) RC_FAIL(fault);
        }
        ladder.agent().routeDelAll();
        ladder.routes.clear();
        RC_ASSERT(ladder.fault() == "");
    }));
}

TEST(RoutePlacement, AStageFarTooSmallStaysFullWhileRoutesComeAndGo) {
    ListedLadder ladder;
    std::mt19937_64 random(6);
    std::vector<LpmKey> all;
    for (U32 i = 0; i < 6000; ++i)  // of stage 23, which has 2048 rows
        all.push_back(routeUnder(route(i * 0x5BD1E << 11, 21), i % 7));
    for (auto const& key : all)
        ladder.add(key, 1);
    EXPECT_EQ(stageFault(ladder, 3, ladder.routes), "");
    EXPECT_GT(ladder.stage(3).hashConvertor()->rowsInUse(), 2000u);
    for (int round = 0; round < 5000; ++round) {
        auto const& key = all[random() % all.size()];
        if (random() % 3 == 0) {
            ladder.add(key, 2);
        } else {
            ladder.del(key);
        }
        if (round % 250 != 0) continue;
        ASSERT_EQ(stageFault(ladder, 3, ladder.routes), "") << round;
    }
    EXPECT_EQ(stageFault(ladder, 3, ladder.routes), "");
    for (auto const& key : all)
        ladder.del(key);
    EXPECT_EQ(ladder.fault(), "");
}

}  // namespace
