#pragma once

#include <atomic>
#include <cerrno>

#include "QLSDKCoreKit/platform/Random.h"

namespace qlsdk::platform::testing {

/// Counts upward instead of drawing, so that a test knows every byte; fails on demand. Any thread.
class FakeRandom final : public Random {
  public:
    int copyBytes(std::span<std::uint8_t> bytes) noexcept override {
        if (successesLeft_ == 0) {
            errno = failureErrno_;
            return -1;
        }
        if (successesLeft_ > 0) --successesLeft_;
        for (std::uint8_t& byte : bytes) byte = next_++;
        return 0;
    }
    /// After `successes` more calls every call fails and leaves `error` in errno.
    void failAfter(int successes, int error) {
        successesLeft_ = successes;
        failureErrno_ = error;
    }

  private:
    std::atomic<std::uint8_t> next_{0};
    std::atomic<int> successesLeft_{-1};
    std::atomic<int> failureErrno_{0};
};

}  // namespace qlsdk::platform::testing
