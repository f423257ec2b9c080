#include <fstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "QLSDKCoreKit/network/TokenOpener.h"

namespace qlsdk {
namespace {

TokenKey keyOfHex(const std::string& digits) {
    TokenKey key{};
    for (std::size_t i = 0; i < key.size(); ++i) {
        key[i] = static_cast<std::uint8_t>(std::stoi(digits.substr(2 * i, 2), nullptr, 16));
    }
    return key;
}

class Vectors : public ::testing::Test {
  protected:
    const nlohmann::json vectors = nlohmann::json::parse(std::ifstream(QLSDK_VECTORS));
    TokenRules rules{.keys = {keyOfHex(vectors["keys"]["new"]), keyOfHex(vectors["keys"]["old"])},
                     .apps = vectors["apps"],
                     .oldestMillis = vectors["oldestMillis"],
                     .aheadMillis = vectors["aheadMillis"]};
    std::int64_t now = vectors["nowMillis"];
};

TEST_F(Vectors, EveryTokenGetsTheVerdictThatTheFileTells) {
    std::size_t good = 0;
    for (const auto& each : vectors["tokens"]) {
        const TokenJudgement judgement = judgeToken(each["token"].get<std::string>(), rules, now);
        EXPECT_EQ(tokenVerdictName(judgement.verdict), each["outcome"]) << each;
        EXPECT_EQ(judgement.isDevelopment, each["outcome"] == "developmentKey");
        if (each["outcome"] != "valid") continue;
        ++good;
        ASSERT_TRUE(judgement.token);
        EXPECT_EQ(judgement.token->bundleIdentifier, each["app"]);
        EXPECT_EQ(judgement.token->createdMillis, each["createdMillis"]);
        EXPECT_EQ(judgement.keyIndex, each["key"] == "new" ? 0U : 1U);
    }
    EXPECT_EQ(good, 20U);
    EXPECT_GE(vectors["tokens"].size() - good, 40U);
}

// Rolling a key: with the new one alone, exactly the old one's tokens are refused. A server that takes the
// development key is told which tokens are sealed with it.
TEST_F(Vectors, ARetiredKeyOpensNothingAndADevelopmentTokenIsNamed) {
    rules.keys = {rules.keys.front(), keyOfHex(vectors["developmentKey"])};
    for (const auto& each : vectors["tokens"]) {
        const TokenJudgement judgement = judgeToken(each["token"].get<std::string>(), rules, now);
        if (each["outcome"] == "valid") {
            EXPECT_EQ(judgement.verdict, each["key"] == "new" ? TokenVerdict::valid : TokenVerdict::key);
        } else if (each["outcome"] == "developmentKey") {
            EXPECT_EQ(judgement.verdict, TokenVerdict::valid);
            EXPECT_TRUE(judgement.isDevelopment);
        }
    }
}

}  // namespace
}  // namespace qlsdk
