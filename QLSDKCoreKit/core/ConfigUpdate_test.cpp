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

struct Outcome {
    std::int64_t status;
    const char* logged;
};

class ConfigUpdateTest : public ::testing::TestWithParam<Outcome> {};

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

    ASSERT_TRUE(fakes.urlSession->answer(GetParam().status, {}, R"({"data":{"config":{}}})"));
    fakes.queues->runUntilIdle();
    EXPECT_THAT(fakes.log->lines(), Contains(GetParam().logged).Times(1));
    EXPECT_EQ(fakes.urlSession->requests().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Outcomes, ConfigUpdateTest,
                         ::testing::Values(Outcome{200, "[QuillKit] Dynamic config update status: success"},
                                           Outcome{500, "[QuillKit] Dynamic config update status: failure"}));

}  // namespace
}  // namespace qlsdk
