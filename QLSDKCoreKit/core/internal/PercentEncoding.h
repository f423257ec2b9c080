#pragma once

#include <string>
#include <string_view>

namespace qlsdk {

/// `text` with every byte as "%" and two upper-case hexadecimal digits, except the letters A to Z and a to z,
/// the digits and the bytes in `bare`. Never depends on the locale.
[[nodiscard]] std::string percentEncoded(std::string_view text, std::string_view bare);

}  // namespace qlsdk
