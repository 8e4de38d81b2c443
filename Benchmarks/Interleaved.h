#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace orvel {

// Runs two ways of handling the same `bytes` in turn and reports both, and the median of their
// ratios: what else runs on the machine hits both alike. `ofBaseline` is the share of the
// baseline's speed that `measured` reaches. Benchmarks that use this are registered with
// UseManualTime(): the time shown is that of `measured`.
template <class Baseline, class Measured>
void runInterleaved(benchmark::State& state, std::size_t bytes, Baseline baseline,
                    Measured measured) {
    using Clock = std::chrono::steady_clock;
    std::vector<double> ratios;
    double baselineSeconds = 0, measuredSeconds = 0;
    for (auto step : state) {
        (void)step;
        const auto start = Clock::now();
        baseline();
        const auto middle = Clock::now();
        measured();
        const auto end = Clock::now();
        const double first = std::chrono::duration<double>(middle - start).count();
        const double second = std::chrono::duration<double>(end - middle).count();
        baselineSeconds += first;
        measuredSeconds += second;
        ratios.push_back(first / second);
        state.SetIterationTime(second);
    }
    std::nth_element(ratios.begin(), ratios.begin() + ratios.size() / 2, ratios.end());
    const double total = static_cast<double>(bytes) * static_cast<double>(ratios.size());
    state.counters["baselineGBps"] = total / baselineSeconds / 1e9;
    state.counters["GBps"] = total / measuredSeconds / 1e9;
    state.counters["ofBaseline"] = ratios[ratios.size() / 2];
}

}  // namespace orvel
