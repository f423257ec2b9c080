#include "tools/inspect/TokenCheck.h"

#include <algorithm>
#include <array>

#include <nlohmann/json.hpp>

namespace quillkit {

namespace {

constexpr std::string_view kPrefix = "v2:";
constexpr std::size_t kBlockDigits = 32;
// The sealed text is padded to whole blocks of four bytes.
constexpr std::size_t kPaddingDigits = 8;

bool isUpperHex(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'); });
}

/// Takes the text up to the next colon off the front of `rest`.
std::string_view nextPiece(std::string_view& rest) {
    const std::size_t colon = std::min(rest.find(':'), rest.size());
    const std::string_view piece = rest.substr(0, colon);
    rest.remove_prefix(std::min(rest.size(), colon + 1));
    return piece;
}

bool isWellFormed(std::string_view token) {
    if (!token.starts_with(kPrefix)) return false;
    std::string_view rest = token.substr(kPrefix.size());
    const std::string_view nonce = nextPiece(rest);
    const std::string_view tag = nextPiece(rest);
    return nonce.size() == kBlockDigits && tag.size() == kBlockDigits && !rest.empty() &&
           rest.size() % kPaddingDigits == 0 && isUpperHex(nonce) && isUpperHex(tag) && isUpperHex(rest);
}

TokenState stateForAge(std::int64_t ageMillis) {
    if (ageMillis > kTokenToleranceMillis) return TokenState::tooOld;
    return ageMillis < -kTokenToleranceMillis ? TokenState::fromTheFuture : TokenState::valid;
}

}  // namespace

TokenReport checkToken(const std::optional<std::string>& header, std::int64_t nowMillis) {
    TokenReport report;
    if (!header.has_value()) return report;
    report.state = TokenState::malformed;
    if (!isWellFormed(*header)) return report;
    report.state = TokenState::doesNotOpen;
    report.opened = qlsdk::openToken(*header);
    if (!report.opened.has_value()) return report;
    report.ageMillis = nowMillis - report.opened->createdMillis;
    report.state = stateForAge(report.ageMillis);
    return report;
}

std::string_view wordsFor(TokenState state) {
    constexpr std::array<std::string_view, 6> kWords{"valid",         "missing", "malformed",
                                                     "does not open", "too old", "from the future"};
    return kWords[static_cast<std::size_t>(state)];
}

nlohmann::ordered_json tokenFields(const TokenReport& token) {
    nlohmann::ordered_json fields{{"state", wordsFor(token.state)}};
    if (!token.opened.has_value()) return fields;
    fields["bundleIdentifier"] = token.opened->bundleIdentifier;
    fields["createdMillis"] = token.opened->createdMillis;
    fields["ageMillis"] = token.ageMillis;
    return fields;
}

}  // namespace quillkit
