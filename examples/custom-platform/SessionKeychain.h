#pragma once

#include <mutex>
#include <vector>

#include <QLSDKCoreKit/platform/Keychain.h>

/// A keychain that forgets everything when the process ends. Any thread.
class SessionKeychain final : public qlsdk::platform::Keychain {
  public:
    qlsdk::platform::OSStatus itemAdd(const qlsdk::Dictionary& attributes) override;
    qlsdk::platform::OSStatus itemUpdate(const qlsdk::Dictionary& query,
                                         const qlsdk::Dictionary& attributesToUpdate) override;
    qlsdk::platform::OSStatus itemCopyMatching(const qlsdk::Dictionary& query, qlsdk::Value* result) override;
    qlsdk::platform::OSStatus itemDelete(const qlsdk::Dictionary& query) override;

  private:
    std::mutex mutex_;
    /// In the order of their creation.
    std::vector<qlsdk::Dictionary> items_;
};
