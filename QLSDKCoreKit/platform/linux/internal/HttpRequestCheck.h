#pragma once

#include <optional>
#include <string>

#include "QLSDKCoreKit/platform/UrlSession.h"

namespace qlsdk::platform {

/// Why `request` must not be sent; absent when it may. Refuses any scheme but https, methods and header names
/// that are not HTTP tokens, and a CR, LF or NUL anywhere in the URL or a header value: each of them would
/// let a value write more of the request than its own field.
[[nodiscard]] std::optional<std::string> reasonToRefuse(const UrlRequest& request);

}  // namespace qlsdk::platform
