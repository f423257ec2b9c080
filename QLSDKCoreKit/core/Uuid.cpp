#include "QLSDKCoreKit/core/Uuid.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include "QLSDKCoreKit/platform/Random.h"
#include "QLSDKCoreKit/values/internal/Hex.h"

namespace qlsdk {

std::optional<std::string> makeUuidString() {
    std::array<std::uint8_t, 16> bytes{};
    if (!platform::copyRandomBytes(bytes)) return std::nullopt;
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // the variant of RFC 4122
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        appendHex(text, bytes[i], kUpperHex);
    }
    return text;
}

}  // namespace qlsdk
