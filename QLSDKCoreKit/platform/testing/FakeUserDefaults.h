#pragma once

#include <mutex>

#include "QLSDKCoreKit/platform/UserDefaults.h"

namespace qlsdk::platform::testing {

/// User defaults in memory. Any thread.
class FakeUserDefaults final : public UserDefaults {
  public:
    Value objectForKey(std::string_view key) override {
        const std::lock_guard lock(mutex_);
        const Value* found = entries_.find(key);
        return found != nullptr ? *found : Value();
    }
    void setObjectForKey(const Value& value, std::string_view key) override {
        const std::lock_guard lock(mutex_);
        value.isNull() ? entries_.erase(key) : entries_.set(key, value);
    }
    [[nodiscard]] Dictionary entries() const {
        const std::lock_guard lock(mutex_);
        return entries_;
    }

  private:
    mutable std::mutex mutex_;
    Dictionary entries_;
};

}  // namespace qlsdk::platform::testing
