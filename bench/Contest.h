#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include <benchmark/benchmark.h>

namespace qlsdk::bench {

using Bytes = std::span<const std::uint8_t>;

inline Bytes bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// A disagreement ends the program, so that no number of another work is ever printed.
inline void require(bool holds, const std::string& what) {
    if (holds) return;
    std::fprintf(stderr, "qlsdk_bench: %s\n", what.c_str());
    std::exit(1);
}

/// Adds one contestant: `write` does the whole work and returns its bytes, which must be `expected` before
/// anything is timed. The name is "group/case/contestant"; the table pairs the contestants of one case.
template <typename Write>
void contest(const std::string& name, Bytes expected, Write write) {
    const std::string wanted(reinterpret_cast<const char*>(expected.data()), expected.size());
    benchmark::RegisterBenchmark(name.c_str(), [name, wanted, write](benchmark::State& state) mutable {
        const Bytes bytes = write();
        require(std::ranges::equal(bytes, bytesOf(wanted)), name + ": the contestants' bytes differ");
        for (auto _ : state) benchmark::DoNotOptimize(write().data());
    });
}

// One for each group.
void addWireContests();
void addArchiveContests();
void addCodecContests();
void addFileContests();
void addPushContests();
void addBurstContests();

}  // namespace qlsdk::bench
