#include <algorithm>
#include <charconv>

#include "QLSDKCoreKit/network/QLSDKPayload.h"
#include "QLSDKCoreKit/network/internal/Sealing.h"
#include "QLSDKCoreKit/platform/Crypto.h"

namespace qlsdk {

namespace {

/// No app's bundle identifier comes near this; it bounds the work that a hostile header can ask for.
constexpr std::size_t kMostSealedBytes = 4096;
constexpr std::uint8_t kMostPadding = 4;

std::optional<std::uint8_t> digit(char c) noexcept {
    if (c >= '0' && c <= '9') return static_cast<std::uint8_t>(c - '0');
    if (c >= 'A' && c <= 'F') return static_cast<std::uint8_t>(c - 'A' + 10);
    return std::nullopt;
}

std::optional<Data> bytesOfHex(std::string_view text) {
    if (text.size() % 2 != 0 || text.size() > 2 * kMostSealedBytes) return std::nullopt;
    Data bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const auto high = digit(text[i]);
        const auto low = digit(text[i + 1]);
        if (!high || !low) return std::nullopt;
        bytes.push_back(static_cast<std::uint8_t>(*high << 4 | *low));
    }
    return bytes;
}

std::optional<platform::Block16> blockOfHex(std::string_view text) {
    const std::optional<Data> bytes = bytesOfHex(text);
    platform::Block16 block{};
    if (!bytes || bytes->size() != block.size()) return std::nullopt;
    std::copy(bytes->begin(), bytes->end(), block.begin());
    return block;
}

/// The text up to the next colon, which is taken away with it.
std::string_view takeField(std::string_view& rest) noexcept {
    const std::size_t end = std::min(rest.find(':'), rest.size());
    const std::string_view field = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return field;
}

std::optional<std::string> withoutPadding(const Data& padded) {
    if (padded.empty()) return std::nullopt;
    const std::uint8_t count = padded.back();
    if (count == 0 || count > kMostPadding || count > padded.size()) return std::nullopt;
    const bool uniform =
        std::all_of(padded.end() - count, padded.end(), [count](std::uint8_t byte) { return byte == count; });
    if (!uniform) return std::nullopt;
    return textOf(DataView(padded).first(padded.size() - count));
}

std::optional<OpenedToken> parsed(const std::string& plaintext) {
    const std::size_t colon = plaintext.rfind(':');
    if (colon == std::string::npos) return std::nullopt;
    OpenedToken token{.bundleIdentifier = plaintext.substr(0, colon)};
    const char* const end = plaintext.data() + plaintext.size();
    const auto result = std::from_chars(plaintext.data() + colon + 1, end, token.createdMillis);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return token;
}

std::optional<OpenedToken> opened(std::string_view token) {
    if (takeField(token) != "v2") return std::nullopt;
    const auto nonce = blockOfHex(takeField(token));
    const auto tag = blockOfHex(takeField(token));
    const auto sealed = bytesOfHex(token);
    if (!nonce || !tag || !sealed) return std::nullopt;
    Data plaintext(sealed->size());
    if (!platform::aes256GcmOpen(plaintext, *tag, *nonce, sealingKey(), *sealed)) return std::nullopt;
    const std::optional<std::string> text = withoutPadding(plaintext);
    return text ? parsed(*text) : std::nullopt;
}

}  // namespace

std::optional<OpenedToken> openToken(std::string_view token) noexcept {
    try {
        return opened(token);
    } catch (...) {
        // Only memory can run out here; the token is then as good as unreadable.
        return std::nullopt;
    }
}

}  // namespace qlsdk
