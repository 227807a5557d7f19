// What an agent's calls cost: table, convertor, shadow in memory, simulated chip.
#include <benchmark/benchmark.h>

#include "NerioSwitchApi/TableFramework.h"

#include "AllocationCount.h"
#include "NerioSwitchTable/NerioTablePortConfig.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitchApi::StartMode;

struct Ports {
    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip = Chip::simulatedChip(*profile);
    NerioSwitchApi::TableFramework framework{profile, chip, NerioSwitchApi::memoryShadowStore()};
    Belmo::Ptr<PortConfigTable> table = portConfigTableFactory("ports");

    Ports() { framework.tableIs(table, StartMode::cold); }
    static PortConfigKey key(std::size_t number) {
        return PortConfigKey(NerioSwitch::ChipPortId(number % 52));
    }
};

PortConfigResult const trunk = PortConfigResult().portModeIs(PortConfigMode::trunk);
PortConfigResult const qinq = PortConfigResult().portModeIs(PortConfigMode::qinq);

void reportAllocations(benchmark::State& state, std::size_t before) {
    state.counters["allocations"] = benchmark::Counter(static_cast<double>(allocationCount() - before),
                                                       benchmark::Counter::kAvgIterations);
}

void entryIsUnchanged(benchmark::State& state) {
    Ports ports;
    for (std::size_t i = 0; i < 52; ++i)
        ports.table->entryIs(Ports::key(i), trunk);
    auto const before = allocationCount();
    std::size_t i = 0;
    for (auto _ : state)
        ports.table->entryIs(Ports::key(i++), trunk);
    reportAllocations(state, before);
}
BENCHMARK(entryIsUnchanged);

void entryIsChanged(benchmark::State& state) {
    Ports ports;
    for (std::size_t i = 0; i < 52; ++i)
        ports.table->entryIs(Ports::key(i), trunk);
    auto const before = allocationCount();
    std::size_t i = 0;
    for (auto _ : state) {
        ports.table->entryIs(Ports::key(i), i / 52 % 2 == 0 ? qinq : trunk);
        ++i;
    }
    reportAllocations(state, before);
}
BENCHMARK(entryIsChanged);

/** A key that the table does not hold yet, the map's growth included; the deletions are not timed. */
void entryIsFirst(benchmark::State& state) {
    Ports ports;
    auto const before = allocationCount();
    std::size_t i = 0;
    for (auto _ : state) {
        ports.table->entryIs(Ports::key(i++), trunk);
        if (i % 52 == 0) {
            state.PauseTiming();
            ports.table->entryDelAll();
            state.ResumeTiming();
        }
    }
    reportAllocations(state, before);
}
BENCHMARK(entryIsFirst);

/** A walk over 52 rows of which none differs. */
void initHwEntriesOverAnUnchangedShadow(benchmark::State& state) {
    Ports ports;
    for (std::size_t i = 0; i < 52; ++i)
        ports.table->entryIs(Ports::key(i), i % 2 == 0 ? trunk : qinq);
    for (auto _ : state)
        ports.table->initHwEntries(false);
}
BENCHMARK(initHwEntriesOverAnUnchangedShadow);

}  // namespace
