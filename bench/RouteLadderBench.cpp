// The chip's route lookup: how fast it is, and whether it agrees with a trie while routes come and go.
#include <benchmark/benchmark.h>
#include <chrono>

#include "NerioSwitchApi/TableFramework.h"

#include "Options.h"
#include "RouteChurn.h"
#include "chip/SimulatedChip.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Ladder {
    explicit Ladder(U32 vrfs) {
        profile->numVrfs = vrfs;
        chip = Chip::simulatedChip(*profile);
        framework = std::make_unique<NerioSwitchApi::TableFramework>(profile, chip,
                                                                     NerioSwitchApi::memoryShadowStore());
        for (auto const& table : stages.tables())
            framework->tableIs(table, NerioSwitchApi::StartMode::cold);
        agent = std::make_unique<Agent::RouteAgent>(stages);
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip;
    std::unique_ptr<NerioSwitchApi::TableFramework> framework;
    Agent::RouteStages stages = Agent::RouteStages::made();
    std::unique_ptr<Agent::RouteAgent> agent;
};

/** Chip lookups at the addresses of routes and at random ones, in rounds until there were that many. */
void routeLadderAgrees(benchmark::State& state) {
    constexpr U64 wanted = 10'000'000;
    auto const vrfs = static_cast<U32>(state.range(0));
    NerioTest::Agreement agreement;
    std::chrono::duration<double> looking{};
    for (auto _ : state) {
        Ladder ladder(vrfs);
        Chip::LpmLookup const lookup(*ladder.chip, *ladder.profile);
        NerioTest::RouteChurn churn(*ladder.agent, vrfs, static_cast<U8>(vrfs), NerioTest::internetLengths);
        churn.addMany(40'000);
        agreement = {};
        looking = {};
        for (; agreement.lookups < wanted; churn.change(4'000)) {
            auto const targets = targetsOf(churn);
            std::vector<std::optional<Chip::LpmHit>> hits(targets.size());
            auto const begin = Clock::now();
            for (std::size_t i = 0; i < targets.size(); ++i)
                hits[i] = lookup.find(targets[i].vrf, targets[i].address);
            looking += Clock::now() - begin;
            compare(churn, *ladder.agent, targets, hits, agreement);
        }
        state.counters["waitingRoutes"] = static_cast<double>(ladder.agent->counts().waitingRoutes);
    }
    state.counters["lookups"] = static_cast<double>(agreement.lookups);
    state.counters["found"] = static_cast<double>(agreement.found);
    state.counters["differences"] = static_cast<double>(agreement.differences);
    state.counters["nsPerLookup"] = looking.count() * 1e9 / static_cast<double>(agreement.lookups);
    if (agreement.differences == 0) return;
    NerioBench::options().hasFailed = true;
    state.SkipWithError(("the chip and the trie differ: " + agreement.difference).c_str());
}
BENCHMARK(routeLadderAgrees)->Arg(4)->Arg(8)->Arg(32)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
