#include "QLSDKCoreKit/network/TokenOpener.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <span>

#include "QLSDKCoreKit/network/internal/Sealing.h"
#include "QLSDKCoreKit/platform/Crypto.h"

namespace qlsdk {

namespace {

/// No app's bundle identifier comes near this; it bounds the work that a hostile header can ask for.
constexpr std::size_t kMostSealedBytes = 4096;
constexpr std::size_t kBlock = 4;

/// A token's bytes, in a room that no number or length in the token can make larger.
struct SealedToken {
    platform::Block16 nonce{};
    platform::Block16 tag{};
    std::array<std::uint8_t, kMostSealedBytes> sealed{};
    std::size_t length = 0;

    [[nodiscard]] DataView bytes() const noexcept { return DataView(sealed).first(length); }
};

std::optional<std::uint8_t> digit(char c) noexcept {
    if (c >= '0' && c <= '9') return static_cast<std::uint8_t>(c - '0');
    if (c >= 'A' && c <= 'F') return static_cast<std::uint8_t>(c - 'A' + 10);
    return std::nullopt;
}

/// Fills `bytes` from twice as many digits.
bool readHex(std::string_view text, std::span<std::uint8_t> bytes) noexcept {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const auto high = digit(text[2 * i]);
        const auto low = digit(text[2 * i + 1]);
        if (!high || !low) return false;
        bytes[i] = static_cast<std::uint8_t>(*high << 4 | *low);
    }
    return true;
}

/// The text up to the next colon, which is taken away with it.
std::string_view takeField(std::string_view& rest) noexcept {
    const std::size_t end = std::min(rest.find(':'), rest.size());
    const std::string_view field = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return field;
}

TokenVerdict parse(std::string_view token, SealedToken& result) noexcept {
    if (!token.starts_with("v2:")) return TokenVerdict::version;
    takeField(token);
    const std::string_view nonce = takeField(token);
    const std::string_view tag = takeField(token);
    result.length = token.size() / 2;
    if (nonce.size() != 2 * result.nonce.size() || tag.size() != 2 * result.tag.size() || token.empty() ||
        token.size() % (2 * kBlock) != 0 || result.length > kMostSealedBytes) {
        return TokenVerdict::length;
    }
    const bool isHex = readHex(nonce, result.nonce) && readHex(tag, result.tag) &&
                       readHex(token, std::span(result.sealed).first(result.length));
    return isHex ? TokenVerdict::valid : TokenVerdict::digits;
}

/// The text in front of the padding. Empty, which no token's text is, when the padding is wrong.
std::string_view withoutPadding(DataView padded) noexcept {
    const std::size_t count = padded.back();
    if (count == 0 || count > kBlock || count > padded.size()) return {};
    const DataView padding = padded.last(count);
    if (!std::all_of(padding.begin(), padding.end(), [count](std::uint8_t byte) { return byte == count; })) {
        return {};
    }
    return {reinterpret_cast<const char*>(padded.data()), padded.size() - count};
}

std::optional<OpenedToken> readText(std::string_view text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos) return std::nullopt;
    OpenedToken token{.bundleIdentifier = std::string(text.substr(0, colon))};
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data() + colon + 1, end, token.createdMillis);
    if (result.ec != std::errc() || result.ptr != end) return std::nullopt;
    return token;
}

/// Far beyond the ends of time, the nearest number there is.
std::int64_t ageOf(std::int64_t createdMillis, std::int64_t nowMillis) noexcept {
    std::int64_t age = 0;
    if (!__builtin_sub_overflow(nowMillis, createdMillis, &age)) return age;
    return createdMillis < 0 ? std::numeric_limits<std::int64_t>::max()
                             : std::numeric_limits<std::int64_t>::min();
}

class Opening {
  public:
    explicit Opening(const SealedToken& token) noexcept : token_(token) {}

    [[nodiscard]] bool fits(platform::Aes256Key key) noexcept {
        return platform::aes256GcmOpen(std::span(plain_).first(token_.length), token_.tag, token_.nonce, key,
                                       token_.bytes());
    }
    [[nodiscard]] DataView plain() const noexcept { return DataView(plain_).first(token_.length); }

  private:
    const SealedToken& token_;
    std::array<std::uint8_t, kMostSealedBytes> plain_{};
};

bool isDevelopment(platform::Aes256Key key) noexcept {
    return std::ranges::equal(key, developmentSealingKey());
}

/// Looks for the key; `key` when none fits.
TokenVerdict open(Opening& opening, const std::vector<TokenKey>& keys, TokenJudgement& judgement) noexcept {
    const std::size_t count = std::max<std::size_t>(keys.size(), 1);
    for (std::size_t i = 0; i < count; ++i) {
        const platform::Aes256Key key = keys.empty() ? sealingKey() : platform::Aes256Key(keys[i]);
        if (!opening.fits(key)) continue;
        judgement.keyIndex = i;
        judgement.isDevelopment = isDevelopment(key);
        return TokenVerdict::valid;
    }
    judgement.isDevelopment = opening.fits(developmentSealingKey());
    return judgement.isDevelopment ? TokenVerdict::developmentKey : TokenVerdict::key;
}

TokenVerdict judgeContent(const OpenedToken& token, const TokenRules& rules, std::int64_t ageMillis) {
    const auto& apps = rules.apps;
    if (!apps.empty() && std::find(apps.begin(), apps.end(), token.bundleIdentifier) == apps.end()) {
        return TokenVerdict::app;
    }
    if (ageMillis > rules.oldestMillis) return TokenVerdict::tooOld;
    return ageMillis < -rules.aheadMillis ? TokenVerdict::fromTheFuture : TokenVerdict::valid;
}

}  // namespace

TokenJudgement judgeToken(std::string_view token, const TokenRules& rules, std::int64_t nowMillis) noexcept {
    TokenJudgement judgement;
    SealedToken sealed;
    judgement.verdict = parse(token, sealed);
    if (judgement.verdict != TokenVerdict::valid) return judgement;
    Opening opening(sealed);
    judgement.verdict = open(opening, rules.keys, judgement);
    if (judgement.verdict == TokenVerdict::key) return judgement;
    try {
        judgement.token = readText(withoutPadding(opening.plain()));
        if (!judgement.token) {
            judgement.verdict = TokenVerdict::content;
            return judgement;
        }
        judgement.ageMillis = ageOf(judgement.token->createdMillis, nowMillis);
        if (judgement.verdict == TokenVerdict::valid) {
            judgement.verdict = judgeContent(*judgement.token, rules, judgement.ageMillis);
        }
    } catch (...) {
        // Only memory can run out here; the token is then as good as unreadable.
        judgement.verdict = TokenVerdict::content;
    }
    return judgement;
}

const char* tokenVerdictName(TokenVerdict verdict) noexcept {
    constexpr std::array kNames{"valid",          "version", "length", "digits", "key",
                                "developmentKey", "content", "app",    "tooOld", "fromTheFuture"};
    const auto index = static_cast<std::size_t>(verdict);
    return index < kNames.size() ? kNames[index] : "unknown";
}

std::optional<OpenedToken> openToken(std::string_view token) noexcept {
    TokenJudgement judgement = judgeToken(token, {}, 0);
    // Its key is another than this library's, although it is known.
    if (judgement.verdict == TokenVerdict::developmentKey) return std::nullopt;
    return std::move(judgement.token);
}

}  // namespace qlsdk
