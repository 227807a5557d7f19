// Placement through the whole path in tables of other geometries: up to a fill, and at the limit.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <random>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "AllocationCount.h"
#include "WideHashTable.h"
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
    auto const keys = randomKeys(geometry.rows() * 2);
    double worst = 0;
    double sum = 0;
    std::size_t calls = 0;
    for (auto _ : state) {
        Wide wide(geometry);
        std::size_t next = 0;
        while (wide.table->hashConvertor()->failedPlacements() == 0)
            wide.table->entryIs(keys[next++], 1);
        for (std::size_t const end = next + 1000; next < end; ++next) {
            auto const begin = Clock::now();
            wide.table->entryIs(keys[next], 1);
            auto const seconds = std::chrono::duration<double>(Clock::now() - begin).count();
            worst = std::max(worst, seconds);
            sum += seconds;
            ++calls;
        }
    }
    state.counters["worstCall"] = worst;
    state.counters["meanCall"] = sum / static_cast<double>(calls);
}
BENCHMARK(wideWorstCallAtTheLimit)
    ->Args({2, 12})
    ->Args({3, 13})
    ->Args({3, 12})
    ->Args({4, 10})
    ->Unit(benchmark::kMicrosecond);

}  // namespace
