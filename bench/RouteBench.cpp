// A router's whole table through the owner of the route stages, of which the chip can hold a small part. With
// --routes=FILE (a line each: prefix, next hop, VRF) it is that list, otherwise one that is made in the
// likeness of a router's.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <functional>
#include <malloc.h>
#include <memory>
#include <random>
#include <sstream>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "Options.h"
#include "RandomRoutes.h"
#include "agent/RouteAgent.h"
#include "agent/TextFile.h"
#include "chip/SimulatedChip.h"

namespace {

using Agent::Route;
using Agent::RouteStages;
using Agent::RouteState;

constexpr std::size_t internetRoutes = 900'000;

/** A list that is made when it is needed first. */
class RouteSource {
public:
    explicit RouteSource(std::function<std::vector<Route>()> make) : make_(std::move(make)) {}
    std::vector<Route> const& routes() {
        if (routes_.empty()) routes_ = make_();
        return routes_;
    }

private:
    std::function<std::vector<Route>()> make_;
    std::vector<Route> routes_;
};

struct Ladder {
    Ladder() {
        for (auto const& table : stages.tables())
            framework.tableIs(table, NerioSwitchApi::StartMode::cold);
    }
    void load(std::vector<Route> const& routes) const {
        for (auto const& route : routes)
            agent->routeIs(route.key, route.nexthop);
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip = Chip::simulatedChip(*profile);
    NerioSwitchApi::TableFramework framework{profile, chip, NerioSwitchApi::memoryShadowStore()};
    RouteStages stages = RouteStages::made();
    std::unique_ptr<Agent::RouteAgent> agent;
};

double allocatedBytes() {
    auto const info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

/** Rows, the share of routes that are placed, and how many are neither placed nor reported as waiting. */
void reportLoad(benchmark::State& state, Ladder const& ladder) {
    auto const all = ladder.agent->counts();
    std::size_t unreported = 0;
    ladder.agent->forEachRoute([&](Route const& route, RouteState told) {
        std::size_t const number = RouteStages::numberOf(route.key.prefix().len());
        if (number == 0) return;
        auto const& stage = *ladder.stages.hashed[number - 1];
        NerioSwitch::LpmKey const key(
            route.key.vrf(), {Lanvo::IpAddr::fromHostOrder(route.key.prefix().address().hostOrder() &
                                                           Lanvo::Prefix::mask(stage.prefixBaseLen())),
                              stage.prefixBaseLen()});
        if (stage.entryHas(key) != (told == RouteState::placed)) ++unreported;
    });
    state.counters["routes"] = static_cast<double>(all.routes);
    state.counters["placedShare"] =
        1 - static_cast<double>(all.waitingRoutes) / static_cast<double>(all.routes);
    state.counters["waitingKeys"] = static_cast<double>(all.waitingKeys);
    state.counters["unreported"] = static_cast<double>(unreported);
    state.counters["rows11"] = static_cast<double>(ladder.agent->counts(0).keys);
    for (std::size_t i = 0; i < RouteStages::hashing; ++i) {
        auto const name = "rows" + std::to_string(NerioSwitchTable::lpmStages[i].number);
        state.counters[name] = ladder.stages.hashed[i]->hashConvertor()->rowsInUse();
    }
}

void routeLoad(benchmark::State& state, std::vector<Route> const& routes) {
    double bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        {
            Ladder ladder;
            double const before = allocatedBytes();
            ladder.agent = std::make_unique<Agent::RouteAgent>(ladder.stages);
            state.ResumeTiming();
            ladder.load(routes);
            state.PauseTiming();
            bytes = allocatedBytes() - before;
            reportLoad(state, ladder);
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(routes.size()) * state.iterations());
    state.counters["bytesPerRoute"] = bytes / static_cast<double>(routes.size());
}

/** Which routes come and go. */
enum class Chosen : U8 { any, placed };

/** A route is withdrawn and added again. */
void routeChange(benchmark::State& state, std::vector<Route> const& routes, Chosen chosen) {
    Ladder ladder;
    ladder.agent = std::make_unique<Agent::RouteAgent>(ladder.stages);
    ladder.load(routes);
    std::vector<Route> choice;
    for (auto const& route : routes) {
        if (chosen == Chosen::any || ladder.agent->routeState(route.key) == RouteState::placed)
            choice.push_back(route);
    }
    std::mt19937_64 random(20267);
    for (auto _ : state) {
        auto const& route = choice[random() % choice.size()];
        ladder.agent->routeDel(route.key);
        ladder.agent->routeIs(route.key, route.nexthop);
    }
    reportLoad(state, ladder);
}

void registerList(std::string const& name, std::function<std::vector<Route>()> make) {
    auto const source = std::make_shared<RouteSource>(std::move(make));
    benchmark::RegisterBenchmark(("routeLoad/" + name).c_str(), [=](benchmark::State& state) {
        routeLoad(state, source->routes());
    })->Unit(benchmark::kMillisecond);
    for (auto const chosen : {Chosen::any, Chosen::placed}) {
        auto const* const which = chosen == Chosen::any ? "/any" : "/placed";
        benchmark::RegisterBenchmark(("routeChange/" + name + which).c_str(), [=](benchmark::State& state) {
            routeChange(state, source->routes(), chosen);
        })->Unit(benchmark::kMicrosecond);
    }
}

std::vector<Route> likelyRoutes(std::size_t count) {
    std::vector<Route> routes;
    NerioTest::RandomRoutes random(20268);
    for (auto const& key : random.distinct(count))
        routes.push_back({key, random.nexthop()});
    return routes;
}

/** Routes without a next hop get one or another. */
std::vector<Route> routesOf(std::string const& text) {
    std::vector<Route> routes;
    NerioTest::RandomRoutes random(20269);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string prefix;
        U32 nexthop = random.nexthop();
        U32 vrf = 0;
        if (!(words >> prefix)) continue;
        words >> nexthop >> vrf;
        Sorn::CharRange range(prefix);
        routes.push_back({{static_cast<U8>(vrf), Lanvo::Prefix::fromText(range)}, nexthop});
    }
    return routes;
}

}  // namespace

namespace NerioBench {

void registerRoutes() {
    if (options().routes.empty()) {
        for (std::size_t const count : {std::size_t{20'000}, internetRoutes})
            registerList("likely" + std::to_string(count), [=] { return likelyRoutes(count); });
        return;
    }
    try {
        registerList("list", [routes = routesOf(Agent::textOfFile(options().routes))] { return routes; });
    } catch (std::exception const& failure) {
        std::fprintf(stderr, "--routes=%s: %s\n", options().routes.c_str(), failure.what());
        std::exit(2);
    }
}

}  // namespace NerioBench
