#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/platform/UrlSession.h"

namespace qlsdk::platform {

/// Why `request` must not be sent; absent when it may. Refuses any scheme but https, methods and header names
/// that are not HTTP tokens, and a CR, LF or NUL anywhere in the URL or a header value: each of them would
/// let a value write more of the request than its own field.
[[nodiscard]] std::optional<std::string> reasonToRefuse(const UrlRequest& request);

/// True for "HOST:PORT" and "[IPv6 address]:PORT" with a port from 1 to 65535. curl would take what is left
/// out from the URL, and so connect to its server.
[[nodiscard]] bool isHostAndPort(std::string_view text) noexcept;

}  // namespace qlsdk::platform
