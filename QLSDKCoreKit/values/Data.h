#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qlsdk {

/// Owned bytes.
using Data = std::vector<std::uint8_t>;

/// Borrowed bytes, valid for the call they are passed to.
using DataView = std::span<const std::uint8_t>;

/// The bytes of a text, borrowed from it.
inline DataView bytesOf(std::string_view text) noexcept {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// A copy of the bytes of a text.
inline Data dataOf(std::string_view text) {
    const DataView view = bytesOf(text);
    return Data(view.begin(), view.end());
}

/// The bytes seen as text. No check is made that they are UTF-8.
inline std::string textOf(DataView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace qlsdk
