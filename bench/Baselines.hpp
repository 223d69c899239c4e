#pragma once

// The baseline every byte-moving benchmark is read against: a memcpy of the
// same byte count (state.range(0)), measured in the same run.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace marquetry::bench {

inline void memcpyBaseline(benchmark::State& state) {
    const auto bytes = static_cast<std::size_t>(state.range(0));
    const std::vector<std::uint8_t> source(bytes, 0x5A);
    std::vector<std::uint8_t> target(bytes);
    for (auto _ : state) {
        std::memcpy(target.data(), source.data(), bytes);
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

} // namespace marquetry::bench
