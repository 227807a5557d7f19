#pragma once

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstddef>
#include <ctime>

namespace NerioBench {

/** Times single calls: the longest by its own work and by the clock, in which others may have run. */
class LongestCall {
public:
    template <class Call>
    void time(Call const& call) {
        auto const begin = std::chrono::steady_clock::now();
        double const cpuBegin = cpuSeconds();
        call();
        double const cpu = cpuSeconds() - cpuBegin;
        std::chrono::duration<double> const elapsed = std::chrono::steady_clock::now() - begin;
        longestCpu_ = std::max(longestCpu_, cpu);
        longest_ = std::max(longest_, elapsed.count());
        sum_ += cpu;
        ++calls_;
    }

    void report(benchmark::State& state) const {
        state.counters["worstCall"] = longestCpu_;
        state.counters["worstCallElapsed"] = longest_;
        state.counters["meanCall"] = sum_ / static_cast<double>(calls_);
    }

private:
    static double cpuSeconds() {
        timespec now{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
    }

    double longestCpu_ = 0;
    double longest_ = 0;
    double sum_ = 0;
    std::size_t calls_ = 0;
};

}  // namespace NerioBench
