#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/platform/Data.h"
#include "QLSDKCoreKit/platform/Export.h"

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

}  // namespace qlsdk
