// Placement through the whole path in tables of other geometries: up to a fill, and at the limit.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <random>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "AllocationCount.h"
#include "WideHashTable.h"
#include "bench/LongestCall.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioTest;
using Clock = std::chrono::steady_clock;

struct Wide {
    explicit Wide(WideGeometry geometry)
        : chip(Chip::simulatedChip(*profile, {WideHashTable::memory(geometry)})),
          framework(profile, chip, NerioSwitchApi::memoryShadowStore()),
          table(Belmo::make<WideHashTable>("wide", geometry)) {
        framework.tableIs(table, NerioSwitchApi::StartMode::cold);
    }

    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip;
    NerioSwitchApi::TableFramework framework;
    Belmo::Ptr<WideHashTable> table;
};

WideGeometry geometryOf(benchmark::State const& state) {
    return {static_cast<U8>(state.range(0)), static_cast<U32>(state.range(1))};
}

std::vector<WideKey> randomKeys(std::size_t count) {
    std::mt19937_64 random(20265);
    std::vector<WideKey> keys;
    for (std::size_t i = 0; i < count; ++i)
        keys.emplace_back(random(), static_cast<U32>(random()), static_cast<U8>(random()));
    return keys;
}

/** New keys, up to a percentage of all rows; and those of them alone that go in at the end. */
void wideNewKeysTo(benchmark::State& state) {
    auto const geometry = geometryOf(state);
    auto const keys = randomKeys(geometry.rows() * static_cast<std::size_t>(state.range(2)) / 100);
    auto const lastPart = keys.size() - keys.size() / 50;
    double lastSeconds = 0;
    double moves = 0;
    std::size_t allocations = 0;
    for (auto _ : state) {
        state.PauseTiming();
        {
            Wide wide(geometry);
            auto const before = allocationCount();
            state.ResumeTiming();
            for (std::size_t i = 0; i < lastPart; ++i)
                wide.table->entryIs(keys[i], 1);
            auto const begin = Clock::now();
            for (std::size_t i = lastPart; i < keys.size(); ++i)
                wide.table->entryIs(keys[i], 1);
            lastSeconds += std::chrono::duration<double>(Clock::now() - begin).count();
            state.PauseTiming();
            allocations += allocationCount() - before;
            auto const& histogram = wide.table->hashConvertor()->moveHistogram();
            for (std::size_t length = 0; length < histogram.size(); ++length)
                moves += static_cast<double>(length * histogram[length]);
        }
        state.ResumeTiming();
    }
    auto const rounds = static_cast<double>(state.iterations());
    auto const count = static_cast<double>(keys.size());
    state.counters["perCall"] =
        benchmark::Counter(count * rounds, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["atTheEnd"] = lastSeconds / rounds / static_cast<double>(keys.size() - lastPart);
    state.counters["moves"] = moves / rounds / count;
    state.counters["allocations"] = static_cast<double>(allocations) / rounds / count;
}
BENCHMARK(wideNewKeysTo)
    ->Args({2, 12, 45})
    ->Args({3, 13, 85})
    ->Args({3, 12, 90})
    ->Args({4, 10, 95})
    ->Unit(benchmark::kMicrosecond);

/** New keys on a table that keeps failing: the longest call counts. */
void wideWorstCallAtTheLimit(benchmark::State& state) {
    auto const geometry = geometryOf(state);
    auto const keys = randomKeys(std::size_t{2} * geometry.rows());
    NerioBench::LongestCall calls;
    for (auto _ : state) {
        Wide wide(geometry);
        std::size_t next = 0;
        while (wide.table->hashConvertor()->failedPlacements() == 0)
            wide.table->entryIs(keys[next++], 1);
        for (std::size_t const end = next + 1000; next < end; ++next)
            calls.time([&] { wide.table->entryIs(keys[next], 1); });
    }
    calls.report(state);
}
BENCHMARK(wideWorstCallAtTheLimit)
    ->Args({2, 12})
    ->Args({3, 13})
    ->Args({3, 12})
    ->Args({4, 10})
    ->Unit(benchmark::kMicrosecond);

/** The fill of all rows when the first key finds no place. */
template <class NextKey>
double fillOf(WideGeometry geometry, NextKey&& nextKey) {
    Dovra::Cuckoo::Occupancy occupancy(geometry.ways, geometry.rowsPerWay());
    Dovra::Cuckoo::Planner planner(occupancy);
    for (;;) {
        auto const hashes = WideItem::hashesOf(nextKey(), geometry.hashBits);
        Dovra::Cuckoo::Rows rows{};
        for (U8 way = 0; way < geometry.ways; ++way)
            rows[way] = static_cast<U16>(hashes.way(way));
        auto const& plan = planner.plan(rows);
        if (plan.outcome != Dovra::Cuckoo::Outcome::placed) break;
        for (auto const& move : plan.moves) {
            occupancy.take(move.to, occupancy.rowsOf(move.from));
            occupancy.release(move.from);
        }
        occupancy.take(plan.slot, rows);
    }
    return static_cast<double>(occupancy.used()) / occupancy.slots();
}

/** Mean fill over 50 sets: of random keys, and of keys that count up from a random start in one field. */
void wideFill(benchmark::State& state) {
    constexpr int sets = 50;
    auto const geometry = geometryOf(state);
    double randomSum = 0;
    double countedSum = 0;
    double countedLeast = 1;
    for (auto _ : state) {
        for (int set = 0; set < sets; ++set) {
            std::mt19937_64 random(static_cast<U64>(set));
            randomSum += fillOf(geometry, [&] {
                return WideKey(random(), static_cast<U32>(random()), static_cast<U8>(random()));
            });
            U64 const network = random();
            U32 host = static_cast<U32>(random());
            double const counted = fillOf(geometry, [&] { return WideKey(network, host++, 7); });
            countedSum += counted;
            countedLeast = std::min(countedLeast, counted);
        }
    }
    auto const all = sets * static_cast<double>(state.iterations());
    state.counters["random"] = randomSum / all;
    state.counters["counted"] = countedSum / all;
    state.counters["countedLeast"] = countedLeast;
}
BENCHMARK(wideFill)
    ->Args({2, 10})
    ->Args({2, 12})
    ->Args({3, 13})
    ->Args({3, 12})
    ->Args({4, 10})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
