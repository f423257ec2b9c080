#pragma once

#include <cstdint>

namespace qlsdk::testing {

/// While it lives, allocations of the calling thread fail: those of operator new, and those of malloc that
/// stand in a program linked with `-Wl,--wrap=malloc`. At most one at a time in a thread.
class FailingAllocations {
  public:
    /// Which ones after the first `succeeding` that succeed.
    enum class Which : std::uint8_t { next, all };

    explicit FailingAllocations(Which which = Which::all, std::int64_t succeeding = 0) noexcept;
    ~FailingAllocations();
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;

    /// How many have failed so far.
    [[nodiscard]] std::int64_t failed() const noexcept;
    /// Nothing fails from here on.
    void stop() noexcept;
};

}  // namespace qlsdk::testing
