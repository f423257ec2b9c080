#include "tools/inspect/TokenCheck.h"

#include <array>

#include <nlohmann/json.hpp>

namespace quillkit {

namespace {

TokenState stateOf(qlsdk::TokenVerdict verdict) {
    switch (verdict) {
        case qlsdk::TokenVerdict::valid:
            return TokenState::valid;
        case qlsdk::TokenVerdict::version:
        case qlsdk::TokenVerdict::length:
        case qlsdk::TokenVerdict::digits:
            return TokenState::malformed;
        case qlsdk::TokenVerdict::tooOld:
            return TokenState::tooOld;
        case qlsdk::TokenVerdict::fromTheFuture:
            return TokenState::fromTheFuture;
        default:
            return TokenState::doesNotOpen;
    }
}

}  // namespace

TokenReport checkToken(const std::optional<std::string>& header, std::int64_t nowMillis) {
    if (!header.has_value()) return {};
    const qlsdk::TokenRules rules{.oldestMillis = kTokenToleranceMillis,
                                  .aheadMillis = kTokenToleranceMillis};
    qlsdk::TokenJudgement judgement = qlsdk::judgeToken(*header, rules, nowMillis);
    TokenReport report;
    report.state = stateOf(judgement.verdict);
    report.isDevelopment = judgement.isDevelopment;
    if (report.state == TokenState::doesNotOpen) return report;
    report.opened = std::move(judgement.token);
    report.ageMillis = judgement.ageMillis;
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
    fields["isDevelopment"] = token.isDevelopment;
    return fields;
}

}  // namespace quillkit
