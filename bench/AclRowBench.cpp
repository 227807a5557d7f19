#include <array>
#include <benchmark/benchmark.h>

#include "NerioSwitchTable/NerioAclRow.h"
#include "NerioSwitchTable/NerioTableAclHashes.h"

namespace {

using namespace NerioSwitchTable;
using NerioSwitch::AclHashKey;

/** A key of each physical table, with both addresses. */
AclHashKey keyOf(std::int64_t physTable) {
    constexpr std::array combinations{1, 8, 13, 16};
    return AclHashKey()
        .combinationIs(combinations[static_cast<std::size_t>(physTable)])
        .aclIdIs(3)
        .protocolIs(6)
        .portIs(443)
        .vrfIdIs(2)
        .firstPrefixIs({Lanvo::IpAddr::fromHostOrder(0x0A010200), 24})
        .secondPrefixIs({Lanvo::IpAddr::fromHostOrder(0xC0000201), 32});
}

constexpr AclRowFormat format{.verMajor = 6, .singleAclPipeMode = true};

void hashKeyForMaps(benchmark::State& state) {
    auto key = keyOf(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(key);
        benchmark::DoNotOptimize(key.hash(0));
    }
}
BENCHMARK(hashKeyForMaps)->Arg(2);

void makeAclItem(benchmark::State& state) {
    auto key = keyOf(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(key);
        auto const item = Belmo::make<AclHashTableCuckooEntry>(key, true, true);
        benchmark::DoNotOptimize(item->getHash(0) + item->getHash(1));
    }
    state.counters["bytes"] = sizeof(AclHashTableCuckooEntry);
}
BENCHMARK(makeAclItem)->DenseRange(0, 3);

void layOutAclRow(benchmark::State& state) {
    AclRowLayouts const layouts(format);
    auto const key = keyOf(state.range(0));
    auto const& layout = layouts.ofCombination(key.combination());
    auto const packed = layout.key.pack(key);
    auto result = NerioSwitch::AclHashResult().ruleIs(
        0, NerioSwitch::HwAclRule().priorityIs(5).counterIs(77).ruleFlagIs(true));
    for (auto _ : state) {
        std::array<U32, 8> words{};
        benchmark::DoNotOptimize(result);
        layout.set(packed, result, words.data());
        layouts.setControl({77, 1}, layout.key.physTableIdx, 1, words.data());
        benchmark::DoNotOptimize(words);
    }
}
BENCHMARK(layOutAclRow)->DenseRange(0, 3);

void decodeAclRow(benchmark::State& state) {
    AclRowLayouts const layouts(format);
    auto const key = keyOf(state.range(0));
    auto const& layout = layouts.ofCombination(key.combination());
    std::array<U32, 8> words{};
    layout.set(layout.key.pack(key), {}, words.data());
    for (auto _ : state) {
        benchmark::DoNotOptimize(words);
        benchmark::DoNotOptimize(layout.decode(words.data()));
    }
}
BENCHMARK(decodeAclRow)->DenseRange(0, 3);

}  // namespace
