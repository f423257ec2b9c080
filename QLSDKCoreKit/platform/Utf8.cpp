#include "QLSDKCoreKit/platform/Utf8.h"

#include <cstddef>
#include <cstdint>

namespace qlsdk::platform {

namespace {

/// The size of the well-formed sequence at the start of `text`, which is not empty; 0 when there is none.
std::size_t sequenceSize(std::string_view text) noexcept {
    const auto byte = [text](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const auto continues = [&](std::size_t i) { return i < text.size() && (byte(i) & 0xC0) == 0x80; };
    const std::uint8_t lead = byte(0);
    if (lead < 0x80) return 1;
    if (lead < 0xC2 || lead > 0xF4) return 0;
    if (!continues(1)) return 0;
    if (lead < 0xE0) return 2;
    const std::uint8_t second = byte(1);
    if (lead == 0xE0 && second < 0xA0) return 0;
    if (lead == 0xED && second > 0x9F) return 0;
    if (!continues(2)) return 0;
    if (lead < 0xF0) return 3;
    if (lead == 0xF0 && second < 0x90) return 0;
    if (lead == 0xF4 && second > 0x8F) return 0;
    return continues(3) ? 4 : 0;
}

}  // namespace

bool isValidUtf8(std::string_view text) noexcept {
    while (!text.empty()) {
        const std::size_t size = sequenceSize(text);
        if (size == 0) return false;
        text.remove_prefix(size);
    }
    return true;
}

}  // namespace qlsdk::platform
