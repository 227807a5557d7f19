#include <array>
#include <benchmark/benchmark.h>
#include <cstddef>
#include <utility>

#include "NerioSwitch/Parity.h"

#include "NerioSwitchTable/BitField.h"

namespace {

using NerioSwitchTable::BitField;

struct Row {
    static constexpr std::size_t words = 4;
    static constexpr std::array fields{
        BitField{"type", 0, 3},      BitField{"profile", 3, 6},   BitField{"port", 9, 16},
        BitField{"address", 25, 20}, BitField{"filter", 45, 32},  BitField{"mask", 77, 2},
        BitField{"valid", 79, 1},    BitField{"session", 80, 17}, BitField{"parity", 97, 1},
        BitField{"rewrite", 98, 6},
    };
};

using Words = std::array<U32, Row::words>;

template <std::size_t... i>
void setAll(Words& words, U64 value, std::index_sequence<i...>) {
    (std::get<i>(Row::fields).set(words.data(), value + i), ...);
}

void setRowConstantPositions(benchmark::State& state) {
    U64 value = 0x123456789ABCDEF;
    for (auto _ : state) {
        Words words{};
        benchmark::DoNotOptimize(value);
        setAll(words, value, std::make_index_sequence<Row::fields.size()>());
        benchmark::DoNotOptimize(words);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(Row::fields.size()));
}
BENCHMARK(setRowConstantPositions);

void setRowVariablePositions(benchmark::State& state) {
    auto fields = Row::fields;
    U64 value = 0x123456789ABCDEF;
    for (auto _ : state) {
        Words words{};
        benchmark::DoNotOptimize(fields);
        benchmark::DoNotOptimize(value);
        for (auto const& field : fields)
            field.set(words.data(), value);
        benchmark::DoNotOptimize(words);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(fields.size()));
}
BENCHMARK(setRowVariablePositions);

template <std::size_t... i>
U64 getAll(Words const& words, std::index_sequence<i...>) {
    return (std::get<i>(Row::fields).get(words.data()) + ...);
}

void getRowConstantPositions(benchmark::State& state) {
    Words words{0x12345678, 0x9ABCDEF0, 0x0FEDCBA9, 0x87654321};
    for (auto _ : state) {
        benchmark::DoNotOptimize(words);
        benchmark::DoNotOptimize(getAll(words, std::make_index_sequence<Row::fields.size()>()));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(Row::fields.size()));
}
BENCHMARK(getRowConstantPositions);

void getRowVariablePositions(benchmark::State& state) {
    auto fields = Row::fields;
    Words words{0x12345678, 0x9ABCDEF0, 0x0FEDCBA9, 0x87654321};
    for (auto _ : state) {
        benchmark::DoNotOptimize(fields);
        benchmark::DoNotOptimize(words);
        U64 sum = 0;
        for (auto const& field : fields)
            sum += field.get(words.data());
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(fields.size()));
}
BENCHMARK(getRowVariablePositions);

void parityOfRow(benchmark::State& state) {
    Words words{0x12345678, 0x9ABCDEF0, 0x0FEDCBA9, 0x87654321};
    for (auto _ : state) {
        benchmark::DoNotOptimize(words);
        benchmark::DoNotOptimize(NerioSwitch::parityU32Array(words.data(), Row::words));
    }
}
BENCHMARK(parityOfRow);

}  // namespace
