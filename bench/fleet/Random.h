#pragma once

#include <cmath>
#include <cstdint>

namespace qlsdk::fleet {

/// Random numbers that are the same everywhere for the same seed (SplitMix64): those of the standard
/// library's distributions are not.
class Random {
  public:
    explicit Random(std::uint64_t seed) noexcept : state_(mixed(seed)) {}
    /// A stream of its own for one of many.
    Random(std::uint64_t seed, std::uint64_t index) noexcept : state_(mixed(mixed(seed) + index)) {}

    /// In [0, 1).
    [[nodiscard]] double uniform() noexcept {
        state_ += 0x9E3779B97F4A7C15;
        return static_cast<double>(mixed(state_) >> 11) * 0x1p-53;
    }
    /// The time until something that happens once in `meanMillis` on average and has no memory.
    [[nodiscard]] std::int64_t untilNext(std::int64_t meanMillis) noexcept {
        return static_cast<std::int64_t>(-std::log1p(-uniform()) * static_cast<double>(meanMillis));
    }

  private:
    static std::uint64_t mixed(std::uint64_t z) noexcept {
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
        return z ^ (z >> 31);
    }
    std::uint64_t state_;
};

}  // namespace qlsdk::fleet
