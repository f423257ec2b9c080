// What the client setup starts, with a stand-in for the configuration manager.

#include "QLSDKCoreKit/core/internal/ConfigUpdate.h"

#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "QLSDKCoreKit/core/QLSDKClientSetup.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {

namespace {
std::vector<std::function<void(bool success)>> requestedUpdates;
}

void requestConfigUpdate(std::function<void(bool success)> completion) {
    requestedUpdates.push_back(std::move(completion));
}

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(QLSDKClientSetup, AsksForOneUpdateOnTheMainQueueAndLogsItsOutcome) {
    platform::testing::FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    QLSDKClientSetup::sharedInstance();
    QLSDKClientSetup::sharedInstance();
    EXPECT_THAT(requestedUpdates, IsEmpty()) << "the update ran inside the caller's frame";

    EXPECT_EQ(fakes.queues->main()->drain(), 1U);
    ASSERT_EQ(requestedUpdates.size(), 1U);
    EXPECT_THAT(fakes.log->lines(), IsEmpty());
    requestedUpdates.front()(true);
    requestedUpdates.front()(false);
    EXPECT_THAT(fakes.log->lines(), ElementsAre("[QuillKit] Dynamic config update status: success",
                                                "[QuillKit] Dynamic config update status: failure"));
    EXPECT_EQ(fakes.queues->main()->waiting(), 0U);
}

}  // namespace
}  // namespace qlsdk
