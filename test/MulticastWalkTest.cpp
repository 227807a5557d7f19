// Multicast routes at random: packets through the chip against a plain list of what was told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>

#include "FailureText.h"
#include "LpmFixture.h"
#include "MulticastSwitch.h"
#include "chip/LpmLookup.h"

namespace {

using Agent::MulticastRoute;
using Agent::Refusal;
using Agent::RouteState;
using NerioSwitch::LpmKey;
using NerioSwitch::MrouteKey;
using NerioSwitchApi::StartMode;
using NerioSwitchTable::SGKey;
using NerioTest::Copies;
using NerioTest::copiesOf;
using NerioTest::cpuPort;
using NerioTest::fromAny;
using NerioTest::fromSource;
using NerioTest::MulticastPacket;
using NerioTest::MulticastSwitch;
using testing::ElementsAre;

/** What was told, as a plain list. */
class RouteModel {
public:
    void routeIs(MulticastRoute const& route) { routes_[route.key()] = route; }
    bool routeDel(MrouteKey const& key) { return routes_.erase(key) != 0; }
    std::map<MrouteKey, MulticastRoute> const& routes() const { return routes_; }

    Copies copies(MulticastPacket const& packet) const {
        for (U32 const source : {packet.source, 0u}) {
            auto route = routes_.find((source == 0 ? fromAny(packet.group, packet.vlan)
                                                   : fromSource(source, packet.group, packet.vlan))
                                          .key());
            if (route != routes_.end()) return copiesOf(route->second);
        }
        return {};
    }
    /** Ports of a VLAN group that routes send packets to, other than one of them. */
    std::size_t vlanRows(MulticastSwitch const& target) const {
        std::set<std::pair<U32, U32>> rows;
        for (auto const& [key, route] : routes_) {
            for (auto const& [port, vlan] : copiesOf(route)) {
                if (port != cpuPort) rows.emplace(groupOf(target, key), port);
            }
        }
        return rows.size();
    }
    /** Whether some group could take a route beside all others. */
    bool hasGroup(MulticastSwitch const& target, MulticastRoute const& wanted) const {
        for (U32 group = 0; group < 16; ++group) {
            bool fits = true;
            for (auto const& [key, route] : routes_) {
                if (key != wanted.key() && groupOf(target, key) == group) fits = fits && agree(route, wanted);
            }
            if (fits) return true;
        }
        return false;
    }

private:
    static U32 groupOf(MulticastSwitch const& target, MrouteKey const& key) {
        if (key.source().len() != 0)
            return target.tables.sources->entry(SGKey::multicastKey(key))
                .data()
                .multicast()
                .vlanGroupId()
                .value();
        return target.tables.groups->entry({{{}, 32}, key.group(), key.vlanId()}).vlanGroupId().value();
    }
    static bool agree(MulticastRoute const& left, MulticastRoute const& right) {
        auto const vlansOf = [](MulticastRoute const& route) {
            std::map<U32, std::set<U16>> vlans;
            for (auto const& [port, vlan] : copiesOf(route)) {
                if (port != cpuPort) vlans[port].insert(vlan);
            }
            return vlans;
        };
        auto const others = vlansOf(right);
        for (auto const& [port, vlans] : vlansOf(left)) {
            auto const other = others.find(port);
            if (other != others.end() && other->second != vlans) return false;
        }
        return true;
    }

    std::map<MrouteKey, MulticastRoute> routes_;
};

/** Random routes over few keys and few VLANs, so that groups are shared, and run out. */
class MulticastWalk {
public:
    explicit MulticastWalk(U32 seed) : random_(seed) {}

    void run(U32 steps) {
        for (U32 i = 0; i < steps && !testing::Test::HasFatalFailure(); ++i) {
            step();
            check();
        }
    }
    U32 refused() const { return refused_; }

private:
    U32 below(U32 count) { return static_cast<U32>(random_() % count); }
    static MulticastPacket packet(U32 number) {
        return {0x0A000001 + number % 3, 0xE7000001 + number / 3 % 5 * 0x800001,
                static_cast<U16>(number / 15 % 2 * 4094)};
    }
    MulticastRoute randomRoute() {
        auto const about = packet(below(30));
        auto route = below(3) == 0 ? fromAny(about.group, about.vlan)
                                   : fromSource(about.source, about.group, about.vlan);
        Agent::VlanPorts out;
        for (U32 i = below(4); i > 0; --i)
            out[static_cast<U16>(1 + below(9))] = random_() & 0xFF;
        return route.outIs(out).toCpuIs(below(4) == 0);
    }
    void step() {
        auto const route = randomRoute();
        auto const action = below(40);
        if (action == 0) {
            restart(below(2) == 0);
        } else if (action < 12) {
            ASSERT_EQ(target_.agent->routeDel(route.key()), model_.routeDel(route.key()));
        } else if (auto const refusal = target_.agent->routeIs(route)) {
            ++refused_;
            ASSERT_EQ(refusal->reason, Refusal::Reason::noGroup);
            ASSERT_FALSE(model_.hasGroup(target_, route));
        } else {
            model_.routeIs(route);
        }
    }
    /** Everything is told again, or some of it. */
    void restart(bool all) {
        auto const writes = target_.bus->writes();
        target_.start(StartMode::warm);
        auto const before = model_.routes();
        for (auto const& [key, route] : before) {
            if (all || below(3) != 0) {
                ASSERT_FALSE(target_.agent->routeIs(route));
            } else {
                model_.routeDel(key);
            }
        }
        target_.agent->othersDel();
        ASSERT_TRUE(!all || target_.bus->writes() == writes);
    }
    void check() {
        for (U32 number = 0; number < 30; ++number)
            ASSERT_EQ(target_.copies(packet(number)), model_.copies(packet(number)));
        std::size_t sources = 0;
        for (auto const& [key, route] : model_.routes())
            sources += key.source().len() == 32 ? 1 : 0;
        auto const rows = model_.vlanRows(target_);
        ASSERT_THAT(target_.entries(), ElementsAre(sources, model_.routes().size() - sources, rows));
        ASSERT_EQ(target_.agent->routes(), model_.routes().size());
        ASSERT_EQ(target_.agent->vlanRowsInUse(), rows);
    }

    std::mt19937 random_;
    MulticastSwitch target_;
    RouteModel model_;
    U32 refused_ = 0;
};

TEST(MulticastWalkTest, ThePacketsOfTheChipFollowARandomWalk) {
    MulticastWalk walk(20266);
    walk.run(300);
    EXPECT_GT(walk.refused(), 10u);
}

/** Routes of both kinds in the rows that they share, so many that some have no room. */
class SharedRowsTest : public testing::Test {
protected:
    static constexpr std::size_t stage29 = 6;

    static MulticastRoute groupRoute(U32 number) {
        return fromAny(0xE0000000 + number * 0x9E3779u % 0x10000000, static_cast<U16>(number % 4095))
            .outIs({{static_cast<U16>(1 + number % 8), 0x3}});
    }
    static LpmKey route(U32 number) {
        return NerioTest::routeKey(static_cast<U8>(number & 3), number * 0x9E3779B1u & 0xFFFFFFE0, 27);
    }
    void fill() {
        for (U32 i = 0; i < 2500; ++i)
            ASSERT_FALSE(both.agent->routeIs(groupRoute(i)));
        for (U32 i = 0; i < 3000; ++i)
            both.routes->routeIs(route(i), 100 + i);
        ASSERT_GT(waiting(), 100u);
    }
    std::size_t waiting() const { return both.routes->counts(stage29).waitingRoutes; }
    U32 rowsInUse() const { return both.tables.groups->hashConvertor()->rowsInUse(); }
    /** The chip has each kind's own routes, and those alone that are placed. */
    void expectPacketsFollow() {
        Chip::LpmLookup const lookup(*both.chip, *both.profile);
        std::size_t placed = 0;
        both.routes->forEachRoute([&](Agent::Route const& route, RouteState state) {
            auto const& [key, nexthop] = route;
            auto const hit = lookup.find(key.vrf(), key.prefix().address().hostOrder());
            ASSERT_EQ(hit.has_value(), state == RouteState::placed);
            ASSERT_TRUE(!hit || hit->nexthop == nexthop.value());
            placed += hit ? 1 : 0;
        });
        std::size_t groups = 0;
        for (U32 i = 0; i < 3000; ++i) {
            auto const wanted = both.agent->route(groupRoute(i).key());
            auto const found =
                both.copies({1, groupRoute(i).group().hostOrder(), groupRoute(i).vlanId().value()});
            ASSERT_EQ(found, wanted ? copiesOf(*wanted) : Copies());
            groups += wanted ? 1 : 0;
        }
        EXPECT_EQ(rowsInUse(), placed + groups);
    }

    MulticastSwitch both{MulticastSwitch::Kind::both};
};

TEST_F(SharedRowsTest, ARouteThatWaitsTakesTheRowOfAGroupThatGoes) {
    fill();
    auto const before = waiting();
    auto const rows = rowsInUse();
    for (U32 i = 0; i < 300; ++i) {
        ASSERT_TRUE(both.agent->routeDel(groupRoute(i * 7 % 2500).key()));
        ASSERT_EQ(both.routes->retryWaiting(), 0u) << "none that has room waits any longer";
    }
    EXPECT_LT(waiting(), before);
    EXPECT_EQ(rowsInUse(), rows - 300 + (before - waiting()));
    expectPacketsFollow();
    for (U32 i = 0; i < 2500; ++i)
        both.agent->routeDel(groupRoute(i).key());
    EXPECT_EQ(waiting(), 0u);
    expectPacketsFollow();
}

TEST_F(SharedRowsTest, WithoutBeingToldRoutesWaitOn) {
    fill();
    auto const before = waiting();
    both.agent->rowsFreedIs({});
    for (U32 i = 0; i < 300; ++i)
        ASSERT_TRUE(both.agent->routeDel(groupRoute(i).key()));
    EXPECT_EQ(waiting(), before);
    EXPECT_GT(both.routes->retryWaiting(), 0u);
}

TEST_F(SharedRowsTest, AGroupWithoutARowIsRefusedAndARouteThatGoesMakesRoom) {
    fill();
    U32 refused = 0;
    U32 number = 2500;
    for (; number < 2600; ++number) {
        auto const writes = both.bus->writes();
        auto const refusal = both.agent->routeIs(groupRoute(number));
        if (!refusal) continue;
        ++refused;
        ASSERT_EQ(refusal->reason, Refusal::Reason::noPlace);
        ASSERT_EQ(both.bus->writes(), writes);
        ASSERT_THAT(refusal->text, testing::StartsWith("no place in starG for (*, "));
    }
    EXPECT_GT(refused, 10u);
    expectPacketsFollow();
    both.routes->routeDelAll();
    for (number = 2500; number < 2600; ++number)
        EXPECT_FALSE(both.agent->routeIs(groupRoute(number)));
    expectPacketsFollow();
}

TEST_F(SharedRowsTest, BothKindsComeBackFromARestartWithoutAWrite) {
    fill();
    auto const writes = both.bus->writes();
    auto const rows = rowsInUse();
    auto const before = waiting();
    both.start(StartMode::warm);
    for (U32 i = 0; i < 3000; ++i)
        both.routes->routeIs(route(i), 100 + i);
    for (U32 i = 0; i < 2500; ++i)
        ASSERT_FALSE(both.agent->routeIs(groupRoute(i)));
    both.agent->othersDel();
    both.routes->reconciled();
    EXPECT_EQ(both.bus->writes(), writes);
    EXPECT_EQ(rowsInUse(), rows);
    EXPECT_EQ(waiting(), before);
    expectPacketsFollow();
}

TEST_F(SharedRowsTest, AFailureOfTheBusAfterARemovalDelaysRoutesThatWait) {
    fill();
    auto const before = waiting();
    for (U32 i = 0; i < 40; ++i) {
        both.bus->failAfter(i % 20);
        failureOf<NerioSwitchApi::BusException>([&] { both.agent->routeDel(groupRoute(i).key()); });
        both.bus->heal();
        EXPECT_FALSE(both.agent->route(groupRoute(i).key()));
        EXPECT_FALSE(both.agent->routeDel({})) << "which does what was left";
        ASSERT_EQ(both.routes->retryWaiting(), 0u) << i;
    }
    EXPECT_LT(waiting(), before);
    expectPacketsFollow();
}

}  // namespace
