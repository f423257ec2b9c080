#include "QLSDKCoreKit/core/internal/PercentEncoding.h"

namespace qlsdk {

namespace {

bool isAlphanumeric(char c) noexcept {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

}  // namespace

std::string percentEncoded(std::string_view text, std::string_view bare) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size());
    for (const char c : text) {
        if (isAlphanumeric(c) || bare.find(c) != std::string_view::npos) {
            encoded += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            encoded += {'%', kHex[byte >> 4], kHex[byte & 15]};
        }
    }
    return encoded;
}

}  // namespace qlsdk
