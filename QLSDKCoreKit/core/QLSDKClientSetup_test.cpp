#include "QLSDKCoreKit/core/QLSDKClientSetup.h"

#include <atomic>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "QLSDKCoreKit/core/ApplicationHelpers.h"
#include "QLSDKCoreKit/core/internal/RecordingLogger_test.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kMissingClientId =
    "Assertion failure in -[QLSDKClientSetup initPrivate]: [ClientID=(null)] Condition not satisfied: "
    "(_clientID), "
    "reason: 'QLSDKClientId MUST be set in your Info.plist!'";

TEST(QLSDKClientSetup, HoldsThePropertyListAsStored) {
    platform::testing::FakePlatform fakes;
    fakes.bundles->setMain({{"QLSDKClientId", "100%s"},
                            {"QLSDKRedirectUrl", "example://auth?x=1"},
                            {"QLSDKScopes", Array{"one", 2}},
                            {"QLSDKFonts", Dictionary{{"regular", "R"}, {"bold", "B"}}}});
    ASSERT_TRUE(fakes.install());
    const QLSDKClientSetup& setup = QLSDKClientSetup::sharedInstance();
    EXPECT_EQ(setup.clientID(), Value("100%s"));
    EXPECT_EQ(setup.clientIDText(), "100%s");
    ASSERT_TRUE(setup.redirectURL());
    EXPECT_EQ(setup.redirectURL()->absoluteString(), "example://auth?x=1");
    EXPECT_EQ(setup.scopes(), Value(Array{"one", 2}));
    EXPECT_EQ(setup.font().boldFontName(), "B");

    fakes.bundles->setMain({{"QLSDKClientId", "changed"}});
    EXPECT_EQ(QLSDKClientSetup::sharedInstance().clientID(), Value("100%s"));
}

TEST(QLSDKClientSetup, KeepsANumberAsClientIdAndRendersItOnlyAsText) {
    platform::testing::FakePlatform fakes;
    fakes.bundles->setMain({{"QLSDKClientId", 4711}, {"QLSDKRedirectUrl", 5}});
    ASSERT_TRUE(fakes.install());
    testing::RecordingLogger logger;
    const QLSDKClientSetup& setup = QLSDKClientSetup::sharedInstance();
    EXPECT_EQ(setup.clientID(), Value(4711));
    EXPECT_EQ(setup.clientIDText(), "4711");
    EXPECT_FALSE(setup.redirectURL());
    EXPECT_THAT(logger.reports(), IsEmpty());
}

TEST(QLSDKClientSetup, SurvivesAMissingPropertyListWithOneReport) {
    const platform::testing::FakePlatform fakes;
    class NoPropertyList final : public platform::Bundles {
        std::shared_ptr<const platform::Bundle> mainBundle() override {
            return std::make_shared<const platform::Bundle>("/opt/example", Value());
        }
        std::shared_ptr<const platform::Bundle> bundleForAddress(const void*) override {
            return mainBundle();
        }
    };
    platform::Platform platform = fakes.platform();
    platform.bundles = std::make_shared<NoPropertyList>();
    ASSERT_EQ(platform::install(platform), platform::InstallResult::installed);
    testing::RecordingLogger logger;
    // A crash logger may look at the setup it is told about.
    Value seenByLogger = "not asked";
    logger.onReport = [&] { seenByLogger = QLSDKClientSetup::sharedInstance().clientID(); };

    const QLSDKClientSetup& setup = QLSDKClientSetup::sharedInstance();
    EXPECT_TRUE(setup.clientID().isNull());
    EXPECT_FALSE(setup.clientIDText());
    EXPECT_FALSE(setup.redirectURL());
    EXPECT_TRUE(setup.scopes().isNull());
    EXPECT_EQ(setup.font().regularFontName(), "AvenirNext-Medium");
    EXPECT_THAT(logger.reports(), ElementsAre(kMissingClientId));
    EXPECT_TRUE(seenByLogger.isNull());
    EXPECT_EQ(fakes.queues->main()->waiting(), 1U);
}

TEST(QLSDKClientSetup, HasNoRedirectUrlFromWhatIsNone) {
    platform::testing::FakePlatform fakes;
    fakes.bundles->setMain({{"QLSDKClientId", "abc"}, {"QLSDKRedirectUrl", "no url at all"}});
    ASSERT_TRUE(fakes.install());
    EXPECT_FALSE(QLSDKClientSetup::sharedInstance().redirectURL());
}

TEST(QLSDKClientSetup, SixteenFirstUsersShareOneInstanceAndOneUpdate) {
    platform::testing::FakePlatform fakes;
    fakes.bundles->setMain({});
    ASSERT_TRUE(fakes.install());
    testing::RecordingLogger logger;
    std::atomic<bool> go{false};
    std::vector<const QLSDKClientSetup*> seen(16);
    std::vector<std::thread> users;
    for (const QLSDKClientSetup*& slot : seen) {
        users.emplace_back([&go, &slot] {
            go.wait(false);
            slot = &QLSDKClientSetup::sharedInstance();
        });
    }
    go = true;
    go.notify_all();
    for (std::thread& user : users) user.join();
    EXPECT_EQ(std::set(seen.begin(), seen.end()).size(), 1U);
    EXPECT_THAT(logger.reports(), ElementsAre(kMissingClientId));
    EXPECT_EQ(fakes.queues->main()->waiting(), 1U);
}

TEST(QLSDKClientSetup, TriesAgainAfterAConstructionThatFailed) {
    const platform::testing::FakePlatform fakes;
    class OnceOutOfMemory final : public platform::Bundles {
        std::shared_ptr<const platform::Bundle> mainBundle() override {
            if (std::exchange(first_, false)) throw std::bad_alloc();
            return std::make_shared<const platform::Bundle>("/opt/example",
                                                            Dictionary{{"QLSDKClientId", "abc"}});
        }
        std::shared_ptr<const platform::Bundle> bundleForAddress(const void*) override {
            return mainBundle();
        }
        bool first_ = true;
    };
    platform::Platform platform = fakes.platform();
    platform.bundles = std::make_shared<OnceOutOfMemory>();
    ASSERT_EQ(platform::install(platform), platform::InstallResult::installed);
    EXPECT_THROW(QLSDKClientSetup::sharedInstance(), std::bad_alloc);
    EXPECT_EQ(QLSDKClientSetup::sharedInstance().clientID(), Value("abc"));
    EXPECT_EQ(fakes.queues->main()->waiting(), 1U);
}

TEST(QLSDKFont, TakesABoldNameOnlyBesideARegularOne) {
    struct Case {
        Value config;
        const char* regular;
        const char* bold;
    };
    const Case cases[] = {
        {Value(), "AvenirNext-Medium", "AvenirNext-DemiBold"},
        {"no dictionary", "AvenirNext-Medium", "AvenirNext-DemiBold"},
        {Dictionary{{"bold", "X"}}, "AvenirNext-Medium", "AvenirNext-DemiBold"},
        {Dictionary{{"regular", "R"}}, "R", "R"},
        {Dictionary{{"regular", "R"}, {"bold", "B"}}, "R", "B"},
    };
    for (const Case& c : cases) {
        const QLSDKFont font(c.config);
        EXPECT_EQ(font.regularFontName(), c.regular) << describe(c.config);
        EXPECT_EQ(font.boldFontName(), c.bold) << describe(c.config);
    }
}

TEST(FontHelpers, AnUnknownFontHasNoSubstitute) {
    platform::testing::FakePlatform fakes;
    fakes.fonts->known = {"AvenirNext-Medium"};
    ASSERT_TRUE(fakes.install());
    const auto regular = qlsdkRegularFontOfSize(17.5);
    ASSERT_NE(regular, nullptr);
    EXPECT_EQ(regular->name, "AvenirNext-Medium");
    EXPECT_EQ(regular->pointSize, 17.5);
    EXPECT_EQ(qlsdkBoldFontOfSize(17.5), nullptr);
}

}  // namespace
}  // namespace qlsdk
