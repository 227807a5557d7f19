#include <array>
#include <benchmark/benchmark.h>
#include <cstring>

#include "NerioSwitch/CrcHash.h"

namespace {

constexpr U8 keyBits = 91;
using Key = std::array<U8, 12>;

/** A different key in every call, so that the tables' lines are used as a table of many keys uses them. */
class Keys {
public:
    Key const& next() {
        state_ = state_ * 6364136223846793005u + 1442695040888963407u;
        std::memcpy(key_.data() + (state_ >> 63) * 4, &state_, sizeof state_);
        return key_;
    }

private:
    U64 state_ = 1;
    Key key_{};
};

void makeKeyOnly(benchmark::State& state) {
    Keys keys;
    for (auto _ : state)
        benchmark::DoNotOptimize(keys.next());
}
BENCHMARK(makeKeyOnly);

void oneWayOf91Bits(benchmark::State& state) {
    Key key{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    for (auto _ : state) {
        benchmark::DoNotOptimize(key);
        benchmark::DoNotOptimize(NerioSwitch::crc12Hash(key.data(), 2, keyBits));
    }
}
BENCHMARK(oneWayOf91Bits);

void allWaysOf91Bits(benchmark::State& state) {
    Key key{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    for (auto _ : state) {
        benchmark::DoNotOptimize(key);
        benchmark::DoNotOptimize(NerioSwitch::crc12Hashes(key.data(), keyBits));
    }
}
BENCHMARK(allWaysOf91Bits);

void allWaysOfChangingKeysOf91Bits(benchmark::State& state) {
    Keys keys;
    for (auto _ : state)
        benchmark::DoNotOptimize(NerioSwitch::crc12Hashes(keys.next().data(), keyBits));
}
BENCHMARK(allWaysOfChangingKeysOf91Bits);

}  // namespace
