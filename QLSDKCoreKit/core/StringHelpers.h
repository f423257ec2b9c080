#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/platform/Export.h"

namespace qlsdk {

// Any thread.

/// `text` for use inside a component of a URL: every byte as "%" and two upper-case hexadecimal digits,
/// except A to Z, a to z, the digits, "-", ".", "_" and "~".
[[nodiscard]] QLSDK_EXPORT std::string urlEncodeString(std::string_view text);

/// `size` random bytes (not characters) in URL-safe base64: ceil(4 * size / 3) characters. A failing random
/// source is dealt with as in `ql_randomDataWithSize`.
[[nodiscard]] QLSDK_EXPORT std::string randomUrlSafeStringWithSize(std::size_t size);

/// `length` random bytes in padded base64: 4 * ceil(length / 3) characters. The name counts bytes, too.
[[nodiscard]] QLSDK_EXPORT std::string randomBase64EncodedStringOfLength(std::size_t length);

}  // namespace qlsdk
