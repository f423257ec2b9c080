#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/platform/Url.h"
#include "QLSDKCoreKit/values/Data.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk {

// Bytes as base64, their digests, and random bytes. Any thread; base64 has no line breaks.

/// The standard alphabet with "=" padding.
[[nodiscard]] QLSDK_EXPORT std::string ql_base64EncodedString(DataView data);

/// The URL-safe alphabet ("-" for "+", "_" for "/") without padding.
[[nodiscard]] QLSDK_EXPORT std::string ql_base64UrlEncodedString(DataView data);

/// Decodes the standard alphabet strictly: no other character, padding in its place. Absent otherwise.
[[nodiscard]] QLSDK_EXPORT std::optional<Data> ql_dataWithBase64EncodedString(std::string_view text);

/// Decodes the URL-safe alphabet, but takes padding away instead of restoring it: only texts whose length
/// without "=" is a multiple of four decode, so not every output of `ql_base64UrlEncodedString` does.
[[nodiscard]] QLSDK_EXPORT std::optional<Data> ql_dataWithBase64UrlEncodedString(std::string_view text);

/// The digest of `data` as text: MD5 (24 characters), SHA-256 (44), SHA-256 in the URL-safe form (43). Absent
/// only where the system's policy forbids the digest.
[[nodiscard]] QLSDK_EXPORT std::optional<std::string> ql_md5Base64String(DataView data);
[[nodiscard]] QLSDK_EXPORT std::optional<std::string> ql_sha256Base64String(DataView data);
[[nodiscard]] QLSDK_EXPORT std::optional<std::string> ql_sha256Base64Url(DataView data);

/// `size` bytes from the system's secure random source. When that fails, the failure is reported as a handled
/// assertion and the bytes are all zero: whoever needs secrecy must not take them from here unchecked.
[[nodiscard]] QLSDK_EXPORT Data ql_randomDataWithSize(std::size_t size);

// Any thread.

/// `text` for use inside a component of a URL: every byte as "%" and two upper-case hexadecimal digits,
/// except A to Z, a to z, the digits, "-", ".", "_" and "~".
[[nodiscard]] QLSDK_EXPORT std::string urlEncodeString(std::string_view text);

/// `size` random bytes (not characters) in URL-safe base64: ceil(4 * size / 3) characters. A failing random
/// source is dealt with as in `ql_randomDataWithSize`.
[[nodiscard]] QLSDK_EXPORT std::string randomUrlSafeStringWithSize(std::size_t size);

/// `length` random bytes in padded base64: 4 * ceil(length / 3) characters. The name counts bytes, too.
[[nodiscard]] QLSDK_EXPORT std::string randomBase64EncodedStringOfLength(std::size_t length);

/// `base` with `queries` as its query, in the dictionary's own order, in place of the one it has. Names and
/// values (normally texts; anything else is rendered) are percent-encoded, except A to Z, a to z, the digits
/// and ``!$'()*+,-./:;?@_~``: a "+" stays bare. An absent or empty dictionary leaves an empty query, so the
/// URL then ends in "?". Absent when `base` is empty or no URL. Any thread.
[[nodiscard]] QLSDK_EXPORT std::optional<platform::Url> buildWithBaseUrlString(
    std::string_view base, const std::optional<Dictionary>& queries);

/// Milliseconds since 1970-01-01 UTC, rounded down also before that day. A clock beyond the range answers the
/// range's end, one that answers no number 0. Any thread.
[[nodiscard]] QLSDK_EXPORT std::int64_t currentTimeMillis();

}  // namespace qlsdk
