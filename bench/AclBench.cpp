// What an agent's calls on a hash table cost all told: entry, item, status, placement, packing, shadow in
// memory, simulated chip, one copy. Rows of the ACL: two hash tables of 4096 rows.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <random>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "AllocationCount.h"
#include "NerioSwitchTable/NerioTableAclHashes.h"
#include "bench/LongestCall.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::AclHashKey;
using NerioSwitch::AclHashResult;
using NerioSwitch::HwAclRule;
using NerioSwitchApi::StartMode;

constexpr std::size_t rows = 8192;
constexpr std::size_t entriesAt45Percent = rows * 45 / 100;
constexpr double registersPerRow = 5;

struct Acl {
    Belmo::Ptr<NerioSwitch::ProfileInfo> profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::SimulatedChip> chip = Chip::simulatedChip(*profile);
    NerioSwitchApi::TableFramework framework{profile, chip, NerioSwitchApi::memoryShadowStore()};
    Belmo::Ptr<AclHashTable> table = aclHashTableFactory("acl", 0, 2);

    Acl() { framework.tableIs(table, StartMode::cold); }

    double movesPerEntry() const {
        double moves = 0;
        double placements = 0;
        auto const& histogram = table->hashConvertor()->moveHistogram();
        for (std::size_t length = 0; length < histogram.size(); ++length) {
            moves += static_cast<double>(length * histogram[length]);
            placements += static_cast<double>(histogram[length]);
        }
        return moves / placements;
    }
};

std::vector<AclHashKey> randomKeys(std::size_t count) {
    std::mt19937_64 random(20264);
    auto const prefix = [&] {
        return Lanvo::Prefix(Lanvo::IpAddr::fromHostOrder(static_cast<U32>(random()) | 1), 32);
    };
    std::vector<AclHashKey> keys;
    for (std::size_t i = 0; i < count; ++i) {
        keys.push_back(AclHashKey()
                           .combinationIs(12)
                           .aclIdIs(static_cast<U8>(random() % 16))
                           .firstPrefixIs(prefix())
                           .secondPrefixIs(prefix())
                           .protocolIs(1 + random() % 15)
                           .portIs(static_cast<U16>(random())));
    }
    return keys;
}

AclHashResult ruleOf(std::size_t number) {
    return AclHashResult().ruleIs(0, HwAclRule().priorityIs(1 + number % 63).counterIs(number % 4096));
}

/** Reports the time of one call out of `calls` in each iteration, and what it allocates. */
void report(benchmark::State& state, std::size_t calls, double allocations) {
    auto const all = static_cast<double>(calls) * static_cast<double>(state.iterations());
    state.counters["perCall"] =
        benchmark::Counter(all, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["allocations"] = allocations / all;
}

void aclNewKeysTo45Percent(benchmark::State& state) {
    auto const keys = randomKeys(entriesAt45Percent);
    std::size_t allocations = 0;
    double moves = 0;
    for (auto _ : state) {
        state.PauseTiming();
        {
            Acl acl;
            auto const before = allocationCount();
            state.ResumeTiming();
            for (std::size_t i = 0; i < keys.size(); ++i)
                acl.table->entryIs(keys[i], ruleOf(i));
            state.PauseTiming();
            allocations += allocationCount() - before;
            moves = acl.movesPerEntry();
        }
        state.ResumeTiming();
    }
    report(state, keys.size(), static_cast<double>(allocations));
    state.counters["moves"] = moves;
    state.counters["registerWrites"] = (1 + moves) * registersPerRow;
}
BENCHMARK(aclNewKeysTo45Percent)->Unit(benchmark::kMicrosecond);

void aclChangedResult(benchmark::State& state) {
    auto const keys = randomKeys(entriesAt45Percent);
    Acl acl;
    for (std::size_t i = 0; i < keys.size(); ++i)
        acl.table->entryIs(keys[i], ruleOf(i));
    std::size_t round = 0;
    auto const before = allocationCount();
    for (auto _ : state) {
        ++round;
        for (std::size_t i = 0; i < keys.size(); ++i)
            acl.table->entryIs(keys[i], ruleOf(i + round));
    }
    report(state, keys.size(), static_cast<double>(allocationCount() - before));
}
BENCHMARK(aclChangedResult)->Unit(benchmark::kMicrosecond);

void aclUnchangedResult(benchmark::State& state) {
    auto const keys = randomKeys(entriesAt45Percent);
    Acl acl;
    for (std::size_t i = 0; i < keys.size(); ++i)
        acl.table->entryIs(keys[i], ruleOf(i));
    auto const before = allocationCount();
    for (auto _ : state) {
        for (std::size_t i = 0; i < keys.size(); ++i)
            acl.table->entryIs(keys[i], ruleOf(i));
    }
    report(state, keys.size(), static_cast<double>(allocationCount() - before));
}
BENCHMARK(aclUnchangedResult)->Unit(benchmark::kMicrosecond);

void aclDeletion(benchmark::State& state) {
    auto const keys = randomKeys(entriesAt45Percent);
    Acl acl;
    std::size_t allocations = 0;
    for (auto _ : state) {
        state.PauseTiming();
        for (std::size_t i = 0; i < keys.size(); ++i)
            acl.table->entryIs(keys[i], ruleOf(i));
        auto const before = allocationCount();
        state.ResumeTiming();
        for (auto const& key : keys)
            acl.table->entryDel(key);
        allocations += allocationCount() - before;
    }
    report(state, keys.size(), static_cast<double>(allocations));
}
BENCHMARK(aclDeletion)->Unit(benchmark::kMicrosecond);

/** New keys and deletions on a table that keeps failing: the longest call counts. */
void aclWorstCallAtTheLimit(benchmark::State& state) {
    auto const keys = randomKeys(rows);
    NerioBench::LongestCall calls;
    double failed = 0;
    for (auto _ : state) {
        state.PauseTiming();
        Acl acl;
        std::size_t next = 0;
        while (acl.table->hashConvertor()->failedPlacements() == 0) {
            acl.table->entryIs(keys[next], ruleOf(next));
            ++next;
        }
        state.ResumeTiming();
        for (; next < keys.size(); ++next) {
            calls.time([&] { acl.table->entryIs(keys[next], ruleOf(next)); });
            if (next % 2 == 0) acl.table->entryDel(keys[next - 2000]);
        }
        failed = static_cast<double>(acl.table->hashConvertor()->failedPlacements());
    }
    calls.report(state);
    state.counters["failed"] = failed;
}
BENCHMARK(aclWorstCallAtTheLimit)->Unit(benchmark::kMicrosecond);

std::size_t heapInUse() {
    auto const info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

/** What a table at 45 % takes up: maps, items, rows of shadow, and all that is made with the table. */
void aclBytesPerEntry(benchmark::State& state) {
    auto const keys = randomKeys(entriesAt45Percent);
    double bytes = 0;
    for (auto _ : state) {
        auto const profile = NerioSwitch::profilePreset("default");
        auto const chip = Chip::simulatedChip(*profile);
        auto const before = heapInUse();
        NerioSwitchApi::TableFramework framework{profile, chip, NerioSwitchApi::memoryShadowStore()};
        auto const table = aclHashTableFactory("acl", 0, 2);
        framework.tableIs(table, StartMode::cold);
        for (std::size_t i = 0; i < keys.size(); ++i)
            table->entryIs(keys[i], ruleOf(i));
        bytes = static_cast<double>(heapInUse() - before) / static_cast<double>(keys.size());
    }
    state.counters["bytesPerEntry"] = bytes;
}
BENCHMARK(aclBytesPerEntry)->Iterations(1)->Unit(benchmark::kMicrosecond);

}  // namespace
