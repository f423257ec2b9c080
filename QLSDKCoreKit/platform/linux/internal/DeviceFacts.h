#pragma once

#include <string>
#include <string_view>

namespace qlsdk::platform {

/// `raw` made fit for a comment of a User-Agent field: printable ASCII without ';', '(' and ')', trimmed, at
/// most 64 characters; `fallback` when nothing is left.
[[nodiscard]] std::string headerSafeFact(std::string_view raw, std::string_view fallback);

/// The value of `key` in an os-release text, without its quotes; empty when the key is missing.
[[nodiscard]] std::string osReleaseValue(std::string_view text, std::string_view key);

}  // namespace qlsdk::platform
