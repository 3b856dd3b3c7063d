#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>

// The figures that scripts/bench.sh reads, as named counters in the units of their goals.
namespace benchcounters {

// Decimal megabytes per second of CPU time, `bytes` handled per iteration.
inline benchmark::Counter megabytesPerSecond(const benchmark::State& state, std::size_t bytes) {
    return benchmark::Counter(
        static_cast<double>(state.iterations()) * static_cast<double>(bytes) / 1e6,
        benchmark::Counter::kIsRate);
}

// `items` handled per iteration, per second of CPU time.
inline benchmark::Counter perSecond(const benchmark::State& state, double items) {
    return benchmark::Counter(static_cast<double>(state.iterations()) * items,
                              benchmark::Counter::kIsRate);
}

// Milliseconds of CPU time per iteration, paused stretches left out.
inline benchmark::Counter millisecondsEach(const benchmark::State& state) {
    return benchmark::Counter(static_cast<double>(state.iterations()) / 1000.0,
                              benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

}  // namespace benchcounters
