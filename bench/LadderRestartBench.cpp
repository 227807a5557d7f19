// Warm restart of a whole route ladder: every stage as full as it gets, over the shadow and the chip of
// before.
#include <array>
#include <benchmark/benchmark.h>
#include <random>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"
#include "Sorn/Format.h"

#include "NerioSwitchTable/NerioTableLpm11.h"
#include "NerioSwitchTable/NerioTableLpmTables.h"
#include "chip/RecordingBus.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitchApi::StartMode;

constexpr std::size_t stages = 7;
constexpr std::array factories{
    +[](Belmo::String const& name) -> Belmo::Ptr<LpmBaseTable> { return lpm14TableFactory(name); },
    +[](Belmo::String const& name) -> Belmo::Ptr<LpmBaseTable> { return lpm17TableFactory(name); },
    +[](Belmo::String const& name) -> Belmo::Ptr<LpmBaseTable> { return lpm20TableFactory(name); },
    +[](Belmo::String const& name) -> Belmo::Ptr<LpmBaseTable> { return lpm23TableFactory(name); },
    +[](Belmo::String const& name) -> Belmo::Ptr<LpmBaseTable> { return lpm26TableFactory(name); },
    +[](Belmo::String const& name) -> Belmo::Ptr<LpmBaseTable> { return lpm29TableFactory(name); },
    +[](Belmo::String const& name) -> Belmo::Ptr<LpmBaseTable> { return lpm32TableFactory(name); }};
static_assert(factories.size() == stages);

NerioSwitch::LpmKey keyOf(U32 vrf, U32 address, U32 length) {
    U32 const mask = ~((U64{1} << (32 - length)) - 1) & 0xFFFFFFFF;
    return {static_cast<U8>(vrf), {Lanvo::IpAddr::fromHostOrder(address & mask), static_cast<U8>(length)}};
}

EntryCellResult cellOf(U32 nexthop, U32 length) {
    return EntryCellResult().nexthopIndexesIs(nexthop).realPrefixLenIs(static_cast<U8>(length));
}

/** The tables of a process, over a shadow and a chip that outlive it. */
struct Ladder {
    Ladder(Belmo::Ptr<NerioSwitch::ProfileInfo> const& profile,
           Belmo::Ptr<NerioSwitchApi::RegisterBus> const& bus,
           Belmo::Ptr<NerioSwitchApi::ShadowStore> const& shadows)
        : framework(profile, bus, shadows) {
        for (auto const factory : factories)
            hashed.push_back(factory(Sorn::_fmt("lpm%u", static_cast<U32>(hashed.size()))));
    }
    void start(StartMode mode) {
        framework.tableIs(direct, mode);
        for (auto const& table : hashed)
            framework.tableIs(table, mode);
    }
    std::size_t entries() const {
        std::size_t all = direct->entries().size();
        for (auto const& table : hashed)
            all += table->entries().size();
        return all;
    }

    NerioSwitchApi::TableFramework framework;
    Belmo::Ptr<Lpm11Table> direct = lpm11TableFactory("lpm11");
    std::vector<Belmo::Ptr<LpmBaseTable>> hashed;
};

/** Random routes into every stage until one finds no place, and all rows of the direct one. */
void fill(Ladder& ladder, U32 numVrfs) {
    std::mt19937 random(20266);
    for (U32 row = 0; row < numVrfs << 11; ++row) {
        ladder.direct->entryIs(keyOf(row >> 11, row << 21, 11),
                               Lpm11Result().cellResultIs(cellOf(row % 4096, 8)));
    }
    for (auto const& table : ladder.hashed) {
        U32 const length = table->prefixBaseLen();
        for (;;) {
            auto const key = keyOf(static_cast<U32>(random()) % numVrfs, static_cast<U32>(random()), length);
            LpmResult result;
            for (U8 cell = 0; cell < 4; ++cell)
                result.cellResultIs(cell, cellOf(static_cast<U32>(random()) % 4096, length + cell % 3));
            table->entryIs(key, result);
            if (table->tableStatus()->entryStatus(key).status() ==
                NerioSwitchApi::EntryProgrammedStatus::entryProgrammed)
                continue;
            table->entryDel(key);
            break;
        }
    }
}

void ladderWarmRestart(benchmark::State& state) {
    auto const profile = NerioSwitch::profilePreset("default");
    profile->numVrfs = static_cast<U32>(state.range(0));
    auto const bus = Belmo::make<Chip::RecordingBus>(Chip::simulatedChip(*profile));
    auto const shadows = NerioSwitchApi::memoryShadowStore();
    std::size_t entries = 0;
    {
        Ladder ladder(profile, bus, shadows);
        ladder.start(StartMode::cold);
        fill(ladder, profile->numVrfs);
        entries = ladder.entries();
    }
    bus->take();
    for (auto _ : state) {
        state.PauseTiming();
        {
            Ladder ladder(profile, bus, shadows);
            state.ResumeTiming();
            ladder.start(StartMode::warm);
            state.PauseTiming();
            if (ladder.entries() != entries) state.SkipWithError("entries did not come back");
        }
        state.ResumeTiming();
    }
    if (!bus->take().empty()) state.SkipWithError("a warm restart wrote registers");
    state.counters["entries"] = static_cast<double>(entries);
}
BENCHMARK(ladderWarmRestart)->ArgName("vrfs")->Arg(4)->Arg(32)->Unit(benchmark::kMillisecond);

}  // namespace
