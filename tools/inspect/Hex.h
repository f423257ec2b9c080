#pragma once

#include <string>

#include "QLSDKCoreKit/values/Data.h"

namespace quillkit {

/// Two lower-case digits for each byte.
[[nodiscard]] inline std::string hexOf(qlsdk::DataView bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

}  // namespace quillkit
