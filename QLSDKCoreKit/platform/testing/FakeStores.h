#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "QLSDKCoreKit/platform/Directories.h"
#include "QLSDKCoreKit/platform/Keychain.h"
#include "QLSDKCoreKit/platform/UserDefaults.h"

namespace qlsdk::platform::testing {

/// A keychain in memory that obeys the port's rules. Any thread.
class FakeKeychain final : public Keychain {
  public:
    OSStatus itemAdd(const Dictionary& attributes) override;
    OSStatus itemUpdate(const Dictionary& query, const Dictionary& attributesToUpdate) override;
    OSStatus itemCopyMatching(const Dictionary& query, Value* result) override;
    OSStatus itemDelete(const Dictionary& query) override;

    /// Makes every call answer `status` without looking, as a locked store does; absent ends that.
    void failWith(std::optional<OSStatus> status);
    /// The items as attribute dictionaries with their data, in the order of their creation.
    [[nodiscard]] std::vector<Dictionary> items() const;

  private:
    mutable std::mutex mutex_;
    std::optional<OSStatus> failure_;
    std::vector<Dictionary> items_;
};

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

/// A caches directory of the test's own that is removed with this object.
class TemporaryDirectories final : public Directories {
  public:
    TemporaryDirectories();
    ~TemporaryDirectories() override;

    std::optional<std::string> cachesDirectory() override { return path_; }
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

  private:
    std::string path_;
};

}  // namespace qlsdk::platform::testing
