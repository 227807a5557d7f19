// Tables of address translation at their limits, and whole translations.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <memory>
#include <random>
#include <vector>

#include "NerioSwitchApi/TableFramework.h"

#include "AllocationCount.h"
#include "NerioSwitchTable/NerioTableNatDynMatch.h"
#include "NerioSwitchTable/NerioTableNatMatch.h"
#include "NerioSwitchTable/NerioTableNatRewrite.h"
#include "agent/NatAgent.h"
#include "chip/NatLookup.h"
#include "chip/RecordingBus.h"
#include "chip/SimulatedChip.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitchApi::StartMode;
using Random = std::mt19937_64;

Lanvo::IpAddr randomAddress(Random& random) {
    return Lanvo::IpAddr::fromHostOrder(static_cast<U32>(random()));
}

/** A kind of table, up to which percentage of its rows it is filled, and its keys. */
struct Matches {
    using Table = NatMatchTable;
    static constexpr auto factory = natMatchTableFactory;
    static constexpr std::size_t entries = 3 * 4096 * 90 / 100;

    static NatMatchKey key(Random& random) {
        return NatMatchKey()
            .natTypeIs(NerioSwitch::NatType::sourcePort)
            .sipIs(randomAddress(random))
            .sportIs(static_cast<U16>(random()))
            .filterPfxIs({Lanvo::IpAddr::fromHostOrder(static_cast<U32>(random()) & 0xFFFFFF00), 24})
            .ingressProfileIdIs(5);
    }
    static NatMatchResult result(std::size_t number) {
        return NatMatchResult().validIs(true).protoIs(1).natSessionIdIs(number % 0x20000);
    }
};

struct DynamicMatches {
    using Table = NatDynMatchTable;
    static constexpr auto factory = natDynMatchTableFactory;
    static constexpr std::size_t entries = 4 * 1024 * 95 / 100;

    static NatMatchKey key(Random& random) {
        return NatMatchKey()
            .natTypeIs(NerioSwitch::NatType::dynamicSource)
            .sipIs(randomAddress(random))
            .sportIs(static_cast<U16>(random()))
            .dipIs(randomAddress(random))
            .dportIs(static_cast<U16>(random()));
    }
    static NatDynMatchResult result(std::size_t number) {
        return NatDynMatchResult().validIs(true).natSessionIdIs(number % 0x20000);
    }
};

struct Rewrites {
    using Table = NatRewriteTable;
    static constexpr auto factory = natRewriteTableFactory;
    static constexpr std::size_t entries = 4 * 1024 * 95 / 100;

    static NatRewriteKey key(Random& random) {
        return NatRewriteKey()
            .isUnicastIs(true)
            .natSessionIdIs(random() % 0x20000)
            .natProfileIdIs(random() % 64)
            .oddPortIs(random() % 2 != 0);
    }
    static NatRewriteResult result(std::size_t number) {
        return NatRewriteResult().validIs(true).newPortIs(static_cast<U16>(number));
    }
};

template <class Kind>
std::vector<typename Kind::Table::Key> randomKeys() {
    Random random(20266);
    std::vector<typename Kind::Table::Key> keys;
    for (std::size_t i = 0; i < Kind::entries; ++i)
        keys.push_back(Kind::key(random));
    return keys;
}

Belmo::Ptr<NerioSwitch::ProfileInfo> profileWithMasks() {
    auto profile = NerioSwitch::profilePreset("default");
    profile->hwApi = {10, 0};
    return profile;
}

std::size_t heapInUse() {
    auto const info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

/** A switch with one table. */
template <class Kind>
struct OneTable {
    explicit OneTable(Belmo::Ptr<NerioSwitchApi::RegisterBus> const& bus,
                      Belmo::Ptr<NerioSwitch::ProfileInfo> const& profile)
        : framework(profile, bus, NerioSwitchApi::memoryShadowStore()), table(Kind::factory("nat", 0)) {
        framework.tableIs(table, StartMode::cold);
    }

    NerioSwitchApi::TableFramework framework;
    Belmo::Ptr<typename Kind::Table> table;
};

/** Register writes and heap of a table that is filled once, apart from what is timed. */
template <class Kind>
void reportCosts(benchmark::State& state, std::vector<typename Kind::Table::Key> const& keys) {
    auto const profile = profileWithMasks();
    auto const chip = Chip::simulatedChip(*profile);
    auto const count = static_cast<double>(keys.size());
    {
        auto const before = heapInUse();
        OneTable<Kind> one(chip, profile);
        for (std::size_t i = 0; i < keys.size(); ++i)
            one.table->entryIs(keys[i], Kind::result(i));
        state.counters["bytesPerEntry"] = static_cast<double>(heapInUse() - before) / count;
    }
    auto const recorder = Belmo::make<Chip::RecordingBus>(chip);
    OneTable<Kind> one(recorder, profile);
    recorder->take();
    for (std::size_t i = 0; i < keys.size(); ++i)
        one.table->entryIs(keys[i], Kind::result(i));
    state.counters["writesPerEntry"] = static_cast<double>(recorder->take().size()) / count;
    state.counters["withoutPlace"] = static_cast<double>(one.table->hashConvertor()->failedPlacements());
}

/** New keys up to the fill that the ways allow. */
template <class Kind>
void natNewKeys(benchmark::State& state) {
    auto const keys = randomKeys<Kind>();
    auto const profile = profileWithMasks();
    double moves = 0;
    std::size_t allocations = 0;
    for (auto _ : state) {
        state.PauseTiming();
        {
            OneTable<Kind> one(Chip::simulatedChip(*profile), profile);
            auto const before = allocationCount();
            state.ResumeTiming();
            for (std::size_t i = 0; i < keys.size(); ++i)
                one.table->entryIs(keys[i], Kind::result(i));
            state.PauseTiming();
            allocations += allocationCount() - before;
            auto const& histogram = one.table->hashConvertor()->moveHistogram();
            for (std::size_t length = 0; length < histogram.size(); ++length)
                moves += static_cast<double>(length * histogram[length]);
        }
        state.ResumeTiming();
    }
    auto const all = static_cast<double>(keys.size()) * static_cast<double>(state.iterations());
    state.counters["entriesPerSecond"] = benchmark::Counter(all, benchmark::Counter::kIsRate);
    state.counters["moves"] = moves / all;
    state.counters["allocations"] = static_cast<double>(allocations) / all;
    reportCosts<Kind>(state, keys);
}
BENCHMARK(natNewKeys<Matches>)->Unit(benchmark::kMicrosecond);
BENCHMARK(natNewKeys<DynamicMatches>)->Unit(benchmark::kMicrosecond);
BENCHMARK(natNewKeys<Rewrites>)->Unit(benchmark::kMicrosecond);

/** Packets that the chip looks up in a full table. */
void natPacketMatch(benchmark::State& state) {
    auto const keys = randomKeys<DynamicMatches>();
    auto const profile = profileWithMasks();
    auto const chip = Chip::simulatedChip(*profile);
    OneTable<DynamicMatches> one(chip, profile);
    for (std::size_t i = 0; i < keys.size(); ++i)
        one.table->entryIs(keys[i], DynamicMatches::result(i));
    Chip::NatMatchLookup const lookup(*chip, *profile, 0);
    std::size_t next = 0;
    for (auto _ : state) {
        auto const& key = keys[next++ % keys.size()];
        auto const hit = lookup.find(Chip::NatFlow{.sourceAddress = key.sip().hostOrder(),
                                                   .sourcePort = key.sport(),
                                                   .destinationAddress = key.dip().hostOrder(),
                                                   .destinationPort = key.dport()});
        benchmark::DoNotOptimize(hit);
    }
}
BENCHMARK(natPacketMatch);

/** Whole translations, to a rewrite fill of 95 percent, and their removal. */
void natTranslations(benchmark::State& state) {
    constexpr U32 count = 4 * 1024 * 95 / 100 / 2;
    auto const profile = profileWithMasks();
    auto const chip = Chip::simulatedChip(*profile);
    NerioSwitchApi::TableFramework framework(profile, chip, NerioSwitchApi::memoryShadowStore());
    auto const matches = natMatchTableFactory("matches", 0);
    framework.tableIs(matches, StartMode::cold);
    Agent::NatAgent::RewriteTables rewrites;
    for (U8 pipeline = 0; pipeline < 2; ++pipeline) {
        rewrites.push_back(natRewriteTableFactory("rewrites" + std::to_string(pipeline), pipeline));
        framework.tableIs(rewrites.back(), StartMode::cold);
    }
    std::vector<Agent::NatTranslation> translations;
    for (U32 i = 0; i < count; ++i) {
        translations.push_back(Agent::NatTranslation()
                                   .insideIs(Lanvo::IpAddr::fromHostOrder(0x0A000000 + i))
                                   .insidePortIs(8080)
                                   .outsideIs(Lanvo::IpAddr::fromHostOrder(0xC0000201))
                                   .outsidePortIs(static_cast<U16>(1000 + i)));
    }
    U32 refused = 0;
    for (auto _ : state) {
        Agent::NatAgent agent({matches}, rewrites);
        for (auto const& translation : translations)
            refused += agent.translationIs(translation) ? 1 : 0;
        for (auto const& translation : translations)
            agent.translationDel(translation);
    }
    state.counters["perTranslation"] =
        benchmark::Counter(count * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["refused"] = refused;
}
BENCHMARK(natTranslations)->Unit(benchmark::kMicrosecond);

}  // namespace
