#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/network/QLSDKPayload.h"

namespace qlsdk {

/// What a server thinks of a client auth token. The order is that in which a token is examined: the first
/// complaint counts.
enum class TokenVerdict : std::int32_t {
    valid,
    /// It does not begin with "v2:".
    version,
    /// A part is missing, or has a length that no token has.
    length,
    /// Something else than upper-case hexadecimal digits.
    digits,
    /// Sealed with another key, or changed on its way; the two cannot be told apart.
    key,
    /// Sealed with the library's public development key, which the server does not take.
    developmentKey,
    /// It opens, but its padding or its text is none that the library writes.
    content,
    /// Made by an app that the server does not know.
    app,
    tooOld,
    fromTheFuture,
};

/// The verdict's name as it stands above, such as "tooOld"; "unknown" for any other number. Lives for ever.
[[nodiscard]] QLSDK_EXPORT const char* tokenVerdictName(TokenVerdict verdict) noexcept;

using TokenKey = std::array<std::uint8_t, 32>;

/// What a server takes.
struct TokenRules {
    /// Every key that tokens may be sealed with, such as the old and the new one while a key is rolled. The
    /// likeliest first: a token is tried with one after the other. Empty takes the key that is built into
    /// this library.
    std::vector<TokenKey> keys{};
    /// Identifiers of the apps that may send. Empty takes any.
    std::vector<std::string> apps{};
    /// How far a token's moment may lie behind the server's clock: its age on the way, and slow clocks.
    std::int64_t oldestMillis = 5 * 60 * 1000;
    /// How far it may lie ahead: fast clocks.
    std::int64_t aheadMillis = 5 * 60 * 1000;
};

/// The verdict, and what the token says.
struct TokenJudgement {
    TokenVerdict verdict = TokenVerdict::version;
    /// Present when it opened, whatever its app and age.
    std::optional<OpenedToken> token{};
    /// Which of `TokenRules::keys` it was sealed with; meaningless when it did not open.
    std::size_t keyIndex = 0;
    /// It was sealed with the development key, whether the server takes that one or not: anybody can have
    /// made it.
    bool isDevelopment = false;
    /// From the token's moment to the server's; 0 when it did not open.
    std::int64_t ageMillis = 0;
};

/// Judges the value of the header "X-Quill-SDK-Client-Auth-Token" at `nowMillis` since 1970. Stateless; any
/// thread. Nothing is allocated before a key has fitted; tags are compared in constant time. When memory runs
/// out then, the verdict is `content`.
[[nodiscard]] QLSDK_EXPORT TokenJudgement judgeToken(std::string_view token, const TokenRules& rules,
                                                     std::int64_t nowMillis) noexcept;

}  // namespace qlsdk
