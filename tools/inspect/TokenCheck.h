#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "QLSDKCoreKit/network/TokenOpener.h"

namespace quillkit {

inline constexpr std::string_view kTokenHeader = "X-Quill-SDK-Client-Auth-Token";
/// How far a token's moment may lie from the collector's clock, either way.
inline constexpr std::int64_t kTokenToleranceMillis = 5 * 60 * 1000;

enum class TokenState { valid, missing, malformed, doesNotOpen, tooOld, fromTheFuture };

/// What a client auth token says and what is to be thought of it.
struct TokenReport {
    TokenState state = TokenState::missing;
    /// Present for every token that opened, whatever its age.
    std::optional<qlsdk::OpenedToken> opened;
    /// From the token's moment to `nowMillis`; 0 when it did not open.
    std::int64_t ageMillis = 0;
    /// Sealed with the public development key: anybody can have made it.
    bool isDevelopment = false;
};

/// Judges the header's value; absent when the request had none.
[[nodiscard]] TokenReport checkToken(const std::optional<std::string>& header, std::int64_t nowMillis);

/// In words, such as "does not open".
[[nodiscard]] std::string_view wordsFor(TokenState state);

/// What the token says, as JSON: "state" and, when it opened, what is in it.
[[nodiscard]] nlohmann::ordered_json tokenFields(const TokenReport& token);

}  // namespace quillkit
