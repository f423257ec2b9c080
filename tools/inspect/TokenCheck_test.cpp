#include "tools/inspect/TokenCheck.h"

#include "tools/testing/RunningCollector.h"
#include <gtest/gtest.h>

#include "QLSDKCoreKit/network/QLSDKPayload.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace quillkit {
namespace {

constexpr std::int64_t kNowMillis = 1'700'000'000'000;

TEST(TokenCheck, TellsTheStatesApart) {
    qlsdk::platform::testing::FakePlatform fakes;
    fakes.clock->set(kNowMillis / 1000.0);
    ASSERT_TRUE(fakes.install());
    const std::string token = qlsdk::QLSDKPayload::serializePayload({}).value();
    std::string changed = token;
    changed.back() = changed.back() == '0' ? '1' : '0';
    std::string lowerCase = token;
    lowerCase[3] = 'a';

    const std::vector<std::tuple<std::optional<std::string>, std::int64_t, TokenState>> cases{
        {token, kNowMillis, TokenState::valid},
        {token, kNowMillis + kTokenToleranceMillis, TokenState::valid},
        {token, kNowMillis + kTokenToleranceMillis + 1, TokenState::tooOld},
        {token, kNowMillis - kTokenToleranceMillis - 1, TokenState::fromTheFuture},
        {changed, kNowMillis, TokenState::doesNotOpen},
        {std::nullopt, kNowMillis, TokenState::missing},
        {"", kNowMillis, TokenState::malformed},
        {"v2:(null)", kNowMillis, TokenState::malformed},
        {lowerCase, kNowMillis, TokenState::malformed},
        {token + "00", kNowMillis, TokenState::malformed},
        {token + ":", kNowMillis, TokenState::malformed},
        {"v1:" + token.substr(3), kNowMillis, TokenState::malformed},
    };
    for (const auto& [header, now, state] : cases) {
        const TokenReport report = checkToken(header, now);
        EXPECT_EQ(wordsFor(report.state), wordsFor(state)) << header.value_or("none");
        EXPECT_EQ(report.opened.has_value(), header == token);
    }
}

TEST(TokenCheck, IsPartOfTheCollectorsLog) {
    qlsdk::platform::testing::FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    const std::string token = qlsdk::QLSDKPayload::serializePayload({}).value();
    const qlsdk::OpenedToken opened = qlsdk::openToken(token).value();

    testing::RunningCollector collector;
    const std::string header = std::string(kTokenHeader) + ": ";
    EXPECT_EQ(collector.post("/v1/sdk/heartbeat", "", {"--header", header + token}).output, "200");
    EXPECT_EQ(collector.post("/v1/sdk/heartbeat", "", {"--header", header + "v2:(null)"}).output, "200");
    const auto fields = collector.logged().at(0)["token"];
    EXPECT_EQ(fields["bundleIdentifier"], opened.bundleIdentifier);
    EXPECT_EQ(fields["createdMillis"], opened.createdMillis);
    EXPECT_EQ(fields["isDevelopment"], true) << "the tests are built with the development key";
    EXPECT_EQ(collector.logged().at(1)["token"], nlohmann::ordered_json::parse(R"({"state":"malformed"})"));
}

}  // namespace
}  // namespace quillkit
