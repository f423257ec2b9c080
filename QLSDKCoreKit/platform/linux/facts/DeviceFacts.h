#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qlsdk::platform {

/// `raw` made fit for a comment of a User-Agent field: printable ASCII without ';', '(' and ')', trimmed, at
/// most 64 characters; `fallback` when nothing is left.
[[nodiscard]] std::string headerSafeFact(std::string_view raw, std::string_view fallback);

/// A processor in the numbers of the `Process` port.
struct Processor {
    std::uint32_t type = 0;
    std::uint32_t subtype = 0;
};

/// The processor that uname calls `machine`; zeros for one that the port has no number for. A 32-bit ARM
/// without a known version has no subtype.
[[nodiscard]] Processor processorOf(std::string_view machine) noexcept;

/// The value of `key` in an os-release text, without its quotes; empty when the key is missing.
[[nodiscard]] std::string osReleaseValue(std::string_view text, std::string_view key);

}  // namespace qlsdk::platform
