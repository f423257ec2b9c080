// What the client setup starts: one fetch of the configuration, whose outcome is logged.

#include "QLSDKCoreKit/core/internal/ConfigUpdate.h"

#include <gmock/gmock.h>

#include "QLSDKCoreKit/core/QLSDKClientSetup.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// The status of the server's answer.
class ConfigUpdateTest : public ::testing::TestWithParam<std::int64_t> {};

TEST_P(ConfigUpdateTest, StartsOnceOnTheMainQueueAndLogsItsOutcome) {
    const platform::testing::FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    QLSDKClientSetup::sharedInstance();
    QLSDKClientSetup::sharedInstance();
    EXPECT_THAT(fakes.queues->labelled("com.quill.connect.QLSDKDynamicConfigManager"), IsEmpty())
        << "the update ran inside the caller's frame";

    EXPECT_EQ(fakes.queues->main()->drain(), 1U);
    fakes.queues->runUntilIdle();
    ASSERT_EQ(fakes.urlSession->requests().size(), 1U);
    EXPECT_THAT(fakes.log->lines(), Not(Contains(HasSubstr("update status"))));

    ASSERT_TRUE(fakes.urlSession->answer(GetParam(), {}, R"({"data":{"config":{}}})"));
    fakes.queues->runUntilIdle();
    const std::string outcome = GetParam() == 200 ? "success" : "failure";
    EXPECT_THAT(fakes.log->lines(), Contains("[QuillKit] Dynamic config update status: " + outcome).Times(1));
    EXPECT_EQ(fakes.urlSession->requests().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Answers, ConfigUpdateTest, ::testing::Values(200, 500));

}  // namespace
}  // namespace qlsdk
