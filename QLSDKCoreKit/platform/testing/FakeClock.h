#pragma once

#include <atomic>

#include "QLSDKCoreKit/platform/Clock.h"

namespace qlsdk::platform::testing {

/// A clock that stands still until the test moves it. Any thread.
class FakeClock final : public Clock {
  public:
    explicit FakeClock(double now = 1'700'000'000.0) : now_(now) {}

    double secondsSince1970() noexcept override { return now_.load(); }
    void set(double now) noexcept { now_.store(now); }
    void advance(double seconds) noexcept { now_.store(now_.load() + seconds); }

  private:
    std::atomic<double> now_;
};

}  // namespace qlsdk::platform::testing
