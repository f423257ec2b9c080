#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/platform/Export.h"

namespace qlsdk {

/// What a client auth token says.
struct OpenedToken {
    /// The identifier of the app that made it.
    std::string bundleIdentifier;
    /// When it was made, in milliseconds since 1970 by that app's clock.
    std::int64_t createdMillis = 0;
};

/// Opens a client auth token with the key that is built into this library, for the server that checks it.
/// Absent when it is no token, was sealed with another key or was changed on its way. Stateless; any thread.
[[nodiscard]] QLSDK_EXPORT std::optional<OpenedToken> openToken(std::string_view token) noexcept;

}  // namespace qlsdk
