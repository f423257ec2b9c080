#include "QLSDKCoreKit/core/internal/PercentEncoding.h"

#include "QLSDKCoreKit/values/internal/Hex.h"

namespace qlsdk {

namespace {

bool isAlphanumeric(char c) noexcept {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

}  // namespace

std::string percentEncoded(std::string_view text, std::string_view bare) {
    std::string encoded;
    encoded.reserve(text.size());
    for (const char c : text) {
        if (isAlphanumeric(c) || bare.find(c) != std::string_view::npos) {
            encoded += c;
        } else {
            encoded += '%';
            appendHex(encoded, static_cast<unsigned char>(c), kUpperHex);
        }
    }
    return encoded;
}

}  // namespace qlsdk
