#pragma once

#include <optional>
#include <string>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk {

/// The fixed values of this build that a development build would let one change. Any thread.
class QLSDK_EXPORT QLSDKTweaks {
  public:
    /// The shared instance; never destroyed.
    static const QLSDKTweaks& shared();

    QLSDKTweaks(const QLSDKTweaks&) = delete;
    QLSDKTweaks& operator=(const QLSDKTweaks&) = delete;

    /// The https origin, without a trailing slash, that the paths of API requests are appended to.
    [[nodiscard]] std::string quillKitApiBaseUrl() const { return "https://api.quillo.example"; }

    /// The https origin, without a trailing slash, of the sign-in pages.
    [[nodiscard]] std::string accountsBaseUrl() const { return "https://accounts.quillo.example"; }

    /// The client identifier that a development build puts in place of the configured one; absent here.
    [[nodiscard]] std::optional<std::string> overrideClientId() const { return std::nullopt; }

  private:
    QLSDKTweaks() = default;
};

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
