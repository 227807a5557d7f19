#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "NerioSwitchApi/Shadow.h"

namespace {

using namespace NerioSwitchApi;

constexpr HwIndex lastRow = 24575;
constexpr std::size_t rowWords = 7;

/** A store in memory or in a directory of its own, which goes with it. */
class Store {
public:
    explicit Store(bool mapped) {
        if (mapped && ::mkdtemp(directory_.data()) == nullptr) std::abort();
        store_ = mapped ? mappedShadowStore(directory_) : memoryShadowStore();
    }
    ~Store() {
        store_.reset();
        std::filesystem::remove_all(directory_);
    }

    /** Closes the store and opens it again, as a new process would. */
    void reopen() {
        store_.reset();
        store_ = mappedShadowStore(directory_);
    }
    Belmo::Ptr<ShadowTable> table(StartMode mode) { return store_->tableIs("bench", 0, lastRow, mode); }

private:
    std::string directory_ = (std::filesystem::temp_directory_path() / "nerio.XXXXXX").string();
    Belmo::Ptr<ShadowStore> store_;
};

constexpr std::array<U32, rowWords> words{0x9E3779B9, 2, 3, 0xFFFFFFFF, 5, 6, 7};

void fill(ShadowTable& table) {
    for (HwIndex row = 0; row <= lastRow; ++row)
        table.store(row, words);
}

void storeArguments(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("mapped")->Arg(0)->Arg(1);
}

/** What an unchanged entry costs: its row is read and compared. */
void readAndCompare(benchmark::State& state) {
    Store store(state.range(0) != 0);
    auto const table = store.table(StartMode::cold);
    fill(*table);
    HwIndex row = 0;
    for (auto _ : state) {
        auto const held = table->read(row);
        benchmark::DoNotOptimize(held && std::ranges::equal(held->words(), words));
        row = row == lastRow ? 0 : row + 1;
    }
}
BENCHMARK(readAndCompare)->Apply(storeArguments);

/** What the shadow adds to writing a row. */
void intendAndWritten(benchmark::State& state) {
    Store store(state.range(0) != 0);
    auto const table = store.table(StartMode::cold);
    fill(*table);
    HwIndex row = 0;
    for (auto _ : state) {
        table->intend(row, words);
        table->written(row);
        row = row == lastRow ? 0 : row + 1;
    }
}
BENCHMARK(intendAndWritten)->Apply(storeArguments);

/** A new process takes over a directory: up to the table, and up to its last row. */
void warmStart(benchmark::State& state) {
    Store store(true);
    fill(*store.table(StartMode::cold));
    bool const readAll = state.range(0) != 0;
    for (auto _ : state) {
        store.reopen();
        auto const table = store.table(StartMode::warm);
        for (HwIndex row = 0; readAll && row <= lastRow; ++row)
            benchmark::DoNotOptimize(table->read(row));
    }
}
BENCHMARK(warmStart)->ArgName("readAll")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace
