#pragma once

#include <mutex>
#include <optional>
#include <vector>

#include "QLSDKCoreKit/platform/Keychain.h"

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

}  // namespace qlsdk::platform::testing
