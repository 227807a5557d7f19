// What an agent's calls on routes by source and group cost all told, up to 90 percent of the rows.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <random>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "NerioSwitchTable/NerioTableSG.h"
#include "chip/RecordingBus.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioSwitchTable;

constexpr std::size_t rows = std::size_t{3} * 8192;
constexpr std::size_t entriesAt90Percent = rows * 90 / 100;

struct Routes {
    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<NerioSwitchApi::RegisterBus> bus;
    NerioSwitchApi::TableFramework framework;
    Belmo::Ptr<SGTable> table = sGTableFactory("routes");

    Routes() : Routes([](auto const& chip) { return chip; }) {}
    /** `around` makes the bus out of the chip. */
    template <class Around>
    explicit Routes(Around const& around)
        : bus(around(Belmo::Ptr<NerioSwitchApi::RegisterBus>(Chip::simulatedChip(*profile)))),
          framework(profile, bus, NerioSwitchApi::memoryShadowStore()) {
        framework.tableIs(table, NerioSwitchApi::StartMode::cold);
    }
};

std::vector<SGKey> randomKeys(std::size_t count) {
    std::mt19937_64 random(20267);
    std::vector<SGKey> keys;
    for (std::size_t i = 0; i < count; ++i) {
        auto const address = [&](U32 first) {
            return Lanvo::Prefix(
                Lanvo::IpAddr::fromHostOrder(first | static_cast<U32>(random() % 0x10000000)), 32);
        };
        keys.push_back(SGKey::multicastKey({address(0x0A000000), address(0xE0000000), random() % 4095}));
    }
    return keys;
}

SGResult resultOf(std::size_t number) {
    return SGResult().dataIs(SGResult::Multicast().portMaskIs(number).vlanGroupIdIs(number % 16));
}

void fill(Routes& routes, std::vector<SGKey> const& keys, std::size_t shift = 0) {
    for (std::size_t i = 0; i < keys.size(); ++i)
        routes.table->entryIs(keys[i], resultOf(i + shift));
}

void sgNewKeysTo90Percent(benchmark::State& state) {
    auto const keys = randomKeys(entriesAt90Percent);
    double moves = 0;
    double bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        {
            Routes routes;
            auto const before = mallinfo2();
            state.ResumeTiming();
            fill(routes, keys);
            state.PauseTiming();
            auto const after = mallinfo2();
            bytes = static_cast<double>(after.uordblks + after.hblkhd - before.uordblks - before.hblkhd);
            moves = 0;
            auto const& histogram = routes.table->hashConvertor()->moveHistogram();
            for (std::size_t length = 0; length < histogram.size(); ++length)
                moves += static_cast<double>(length * histogram[length]);
            if (routes.table->hashConvertor()->failedPlacements() != 0) state.SkipWithError("no place");
        }
        state.ResumeTiming();
    }
    auto const count = static_cast<double>(keys.size());
    state.counters["entries/s"] =
        benchmark::Counter(count * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["moves"] = moves / count;
    state.counters["bytes"] = bytes / count;
}
BENCHMARK(sgNewKeysTo90Percent)->Unit(benchmark::kMillisecond);

void sgChangedResult(benchmark::State& state) {
    auto const keys = randomKeys(entriesAt90Percent);
    Routes routes;
    std::size_t round = 0;
    for (auto _ : state)
        fill(routes, keys, ++round);
    state.counters["entries/s"] =
        benchmark::Counter(static_cast<double>(keys.size()) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate);
}
BENCHMARK(sgChangedResult)->Unit(benchmark::kMillisecond);

/** Register writes of a fill, of both copies, for each entry. */
void sgRegisterWrites(benchmark::State& state) {
    auto const keys = randomKeys(entriesAt90Percent);
    double writes = 0;
    for (auto _ : state) {
        Belmo::Ptr<Chip::RecordingBus> recorder;
        Routes routes([&](auto const& chip) { return recorder = Belmo::make<Chip::RecordingBus>(chip); });
        recorder->take();
        fill(routes, keys);
        writes = static_cast<double>(recorder->take().size());
    }
    state.counters["writes"] = writes / static_cast<double>(keys.size());
}
BENCHMARK(sgRegisterWrites)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
