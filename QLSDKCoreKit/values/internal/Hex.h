#pragma once

#include <cstdint>
#include <string>

namespace qlsdk {

/// The digits of each half of a byte.
using HexDigits = const char (&)[17];
inline constexpr char kUpperHex[] = "0123456789ABCDEF";
inline constexpr char kLowerHex[] = "0123456789abcdef";

/// Writes the two digits of a byte, high half first, and returns the place behind them.
inline char* putHex(char* out, std::uint8_t byte, HexDigits digits) noexcept {
    *out++ = digits[byte >> 4];
    *out++ = digits[byte & 15];
    return out;
}

inline void appendHex(std::string& text, std::uint8_t byte, HexDigits digits) {
    char two[2];
    putHex(two, byte, digits);
    text.append(two, sizeof two);
}

}  // namespace qlsdk
