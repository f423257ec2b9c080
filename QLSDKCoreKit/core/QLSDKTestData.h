#pragma once

#include <optional>
#include <string>

#include "QLSDKCoreKit/platform/Export.h"

namespace qlsdk {

/// What a user-interface test passes to the application it drives. Any thread.
class QLSDK_EXPORT QLSDKTestData {
  public:
    /// The shared instance; never destroyed.
    static const QLSDKTestData& shared();

    QLSDKTestData(const QLSDKTestData&) = delete;
    QLSDKTestData& operator=(const QLSDKTestData&) = delete;

    /// The environment variable "uiTestAccessToken", read anew at each call; absent when it is not set.
    [[nodiscard]] std::optional<std::string> oauthAccessToken() const;

  private:
    QLSDKTestData() = default;
};

}  // namespace qlsdk
