#include "fuzz/Require.h"
#include "fuzz/Targets.h"

#include "QLSDKCoreKit/network/TokenOpener.h"
#include "QLSDKCoreKit/platform/Crypto.h"

namespace qlsdk::fuzz {

namespace {

constexpr TokenKey kKey{1, 2, 3};

TokenJudgement judge(std::string_view text) {
    const TokenRules rules{.keys = {TokenKey{9}, kKey}};
    TokenJudgement judgement = judgeToken(text, rules, 0);
    require(!judgement.token || judgement.keyIndex == 1 || judgement.isDevelopment);
    require(judgement.verdict != TokenVerdict::valid || judgement.token.has_value());
    return judgement;
}

}  // namespace

std::string sealedToken(DataView padded) {
    const platform::Block16 nonce{4, 5, 6};
    platform::Block16 tag{};
    Data sealed(padded.size());
    if (!platform::aes256GcmSeal(sealed, tag, nonce, kKey, padded)) return {};
    return "v2:" + QLSDKPayload::convertDataToHexString(nonce) + ":" +
           QLSDKPayload::convertDataToHexString(tag) + ":" + QLSDKPayload::convertDataToHexString(sealed);
}

void token(DataView bytes) {
    (void)judge(textOf(bytes));
    const TokenJudgement judgement = judge(sealedToken(bytes));
    const bool fits = !bytes.empty() && bytes.size() <= 4096 && bytes.size() % 4 == 0;
    const bool isRefused =
        judgement.verdict <= TokenVerdict::developmentKey && judgement.verdict != TokenVerdict::valid;
    require(fits != isRefused);
    // What it says stands in what was sealed, and the padding takes the rest.
    if (judgement.token) {
        const std::string& app = judgement.token->bundleIdentifier;
        require(textOf(bytes).starts_with(app + ":"));
        require(app.size() + 1 < bytes.size());
    }
}

bool isToken(DataView bytes) {
    return judge(textOf(bytes)).token || judge(sealedToken(bytes)).token;
}

}  // namespace qlsdk::fuzz
