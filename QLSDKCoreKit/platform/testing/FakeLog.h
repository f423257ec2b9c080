#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "QLSDKCoreKit/platform/Log.h"

namespace qlsdk::platform::testing {

/// Keeps every line. Any thread.
class FakeLog final : public Log {
  public:
    void write(std::string_view line) noexcept override {
        const std::lock_guard lock(mutex_);
        lines_.emplace_back(line);
    }
    [[nodiscard]] std::vector<std::string> lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

}  // namespace qlsdk::platform::testing
