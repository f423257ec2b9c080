#include <algorithm>
#include <cstddef>

#include <openssl/evp.h>

#include "QLSDKCoreKit/platform/Crypto.h"

namespace qlsdk::platform {

namespace {

// OpenSSL counts in int, so long inputs go in pieces; both sizes are whole base64 groups.
constexpr std::size_t kPlainPiece = std::size_t{3} << 20;
constexpr std::size_t kTextPiece = std::size_t{4} << 20;

bool isBase64Digit(char c) noexcept {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

// The number of "=" at the end; absent when the text is not strict base64. The decoder itself would skip
// blanks and take padding anywhere.
std::optional<std::size_t> paddingOf(std::string_view text) noexcept {
    if (text.size() % 4 != 0) return std::nullopt;
    std::size_t padding = 0;
    while (padding < std::min<std::size_t>(2, text.size()) && text[text.size() - 1 - padding] == '=')
        ++padding;
    text.remove_suffix(padding);
    if (!std::all_of(text.begin(), text.end(), isBase64Digit)) return std::nullopt;
    return padding;
}

}  // namespace

std::string base64Encode(DataView bytes) {
    // One more than the text for the NUL that each piece is ended with.
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    auto* place = reinterpret_cast<unsigned char*>(text.data());
    while (!bytes.empty()) {
        const DataView piece = bytes.first(std::min(bytes.size(), kPlainPiece));
        place += EVP_EncodeBlock(place, piece.data(), static_cast<int>(piece.size()));
        bytes = bytes.subspan(piece.size());
    }
    text.pop_back();
    return text;
}

std::optional<Data> base64Decode(std::string_view text) {
    const std::optional<std::size_t> padding = paddingOf(text);
    if (!padding) return std::nullopt;
    Data bytes(text.size() / 4 * 3);
    unsigned char* place = bytes.data();
    while (!text.empty()) {
        const DataView piece = bytesOf(text.substr(0, kTextPiece));
        const int decoded = EVP_DecodeBlock(place, piece.data(), static_cast<int>(piece.size()));
        if (decoded < 0) return std::nullopt;
        place += decoded;
        text.remove_prefix(piece.size());
    }
    // Padding was decoded to zero bytes.
    bytes.erase(bytes.end() - static_cast<std::ptrdiff_t>(*padding), bytes.end());
    return bytes;
}

}  // namespace qlsdk::platform
