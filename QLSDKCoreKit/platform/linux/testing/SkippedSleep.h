#pragma once

#include <chrono>
#include <functional>
#include <utility>

namespace qlsdk::platform::testing_support {

/// While one lives, no thread sleeps, and the steady clock stands still but for what they would have slept:
/// a test tells how long a caller waits, however slow the machine. For programs with SkippedSleep.cpp among
/// their sources, which stands in for the C library there; one at a time, and not across a fork.
class SkippedSleep {
  public:
    /// Calls `meanwhile` in each sleep, with what has been slept so far.
    explicit SkippedSleep(std::function<void(std::chrono::nanoseconds)> meanwhile = {});
    ~SkippedSleep();
    SkippedSleep(const SkippedSleep&) = delete;
    SkippedSleep& operator=(const SkippedSleep&) = delete;

    [[nodiscard]] std::chrono::nanoseconds slept() const;
    /// Called in place of the sleep.
    void sleep(std::chrono::nanoseconds time);

  private:
    const std::function<void(std::chrono::nanoseconds)> meanwhile_;
    const std::chrono::nanoseconds before_;
};

}  // namespace qlsdk::platform::testing_support
