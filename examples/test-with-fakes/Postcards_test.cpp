// How a host tests its own use of the kit: on fakes, without network, files or waiting.
#include "Postcards.h"

#include <gtest/gtest.h>

#include <QLSDKCoreKit/platform/testing/FakePlatform.h>

namespace {

constexpr double kDay = 86400;

class PostcardsTest : public ::testing::Test {
  protected:
    // Before the kit's first use.
    void SetUp() override { ASSERT_TRUE(fakes.install()); }

    // Lets the kit do what it has queued, and the server accept whatever was sent.
    void letTheKitWork() {
        do fakes.queues->runUntilIdle();
        while (fakes.urlSession->answer(200));
    }
    std::size_t uploadsTo(std::string_view endpoint) const {
        std::size_t count = 0;
        for (const auto& request : fakes.urlSession->requests()) count += request.url.ends_with(endpoint);
        return count;
    }
    std::string lastBody() const {
        const auto requests = fakes.urlSession->requests();
        return requests.empty() ? "" : qlsdk::textOf(requests.back().body.value_or(qlsdk::Data{}));
    }

    qlsdk::platform::testing::FakePlatform fakes;
};

TEST_F(PostcardsTest, ReportsTheKitOnceADay) {
    Postcards morning;
    Postcards evening;
    letTheKitWork();
    EXPECT_EQ(uploadsTo("/v1/sdk/heartbeat"), 1u);

    fakes.clock->advance(kDay + 1);
    Postcards tomorrow;
    letTheKitWork();
    EXPECT_EQ(uploadsTo("/v1/sdk/heartbeat"), 2u);
}

TEST_F(PostcardsTest, CountsWhatItRefuses) {
    Postcards postcards;
    EXPECT_FALSE(postcards.send(""));
    letTheKitWork();
    EXPECT_EQ(uploadsTo("/v1/sdk/metrics/operational"), 0u) << "one metric waits for company";

    Postcards::resign();
    letTheKitWork();
    EXPECT_EQ(uploadsTo("/v1/sdk/metrics/operational"), 1u);
    EXPECT_NE(lastBody().find("postcards.refused"), std::string::npos);
}

// The user sees nothing of a server that is away.
TEST_F(PostcardsTest, SendsWhileTheServerIsAway) {
    Postcards postcards;
    fakes.queues->runUntilIdle();
    ASSERT_TRUE(fakes.urlSession->fail("no route to host"));
    EXPECT_TRUE(postcards.send("Wish you were here"));
}

}  // namespace
