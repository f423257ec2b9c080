#pragma once

#include <optional>
#include <string_view>

#include "QLSDKCoreKit/platform/Export.h"
#include "QLSDKCoreKit/platform/Url.h"
#include "QLSDKCoreKit/platform/Value.h"

namespace qlsdk {

/// `base` with `queries` as its query, in the dictionary's own order, in place of the one it has. Names and
/// values (normally texts; anything else is rendered) are percent-encoded, except A to Z, a to z, the digits
/// and ``!$'()*+,-./:;?@_~``: a "+" stays bare. An absent or empty dictionary leaves an empty query, so the
/// URL then ends in "?". Absent when `base` is empty or no URL. Any thread.
[[nodiscard]] QLSDK_EXPORT std::optional<platform::Url> buildWithBaseUrlString(
    std::string_view base, const std::optional<Dictionary>& queries);

}  // namespace qlsdk
