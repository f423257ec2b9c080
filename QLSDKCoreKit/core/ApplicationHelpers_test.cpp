#include "QLSDKCoreKit/core/ApplicationHelpers.h"

#include <stdexcept>
#include <vector>

#include <gmock/gmock.h>

#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

using ::testing::ElementsAre;

/// Keeps the modern call's completion instead of answering it.
class SlowApplication final : public platform::Application {
  public:
    std::string opened;
    platform::OpenCompletion completion;

    platform::OpenCall openCall() override { return platform::OpenCall::modern; }
    void openUrl(const std::string& url, const Dictionary& options, platform::OpenCompletion done) override {
        if (options.empty()) opened = url;
        completion = std::move(done);
    }
    bool openUrl(const std::string&) override { return false; }
    bool canOpenUrl(const std::string&) override { return false; }
    platform::LayoutDirection userInterfaceLayoutDirection() override {
        return platform::LayoutDirection::rightToLeft;
    }
    std::shared_ptr<platform::ViewController> keyWindowRootViewController() override { return nullptr; }
};

TEST(ApplicationHelpers, TheModernCallGetsTheCompletionAndAnswersLater) {
    const platform::testing::FakePlatform fakes;
    const auto application = std::make_shared<SlowApplication>();
    platform::Platform platform = fakes.platform();
    platform.application = application;
    ASSERT_EQ(platform::install(platform), platform::InstallResult::installed);
    std::vector<bool> outcomes;
    openURL(*platform::Url::parse("quillo://x"), [&](bool success) { outcomes.push_back(success); });
    EXPECT_EQ(application->opened, "quillo://x");
    EXPECT_TRUE(outcomes.empty());
    application->completion(true);
    EXPECT_THAT(outcomes, ElementsAre(true));
    openURL(*platform::Url::parse("quillo://x"), nullptr);
    EXPECT_FALSE(application->completion);
    EXPECT_TRUE(isRTL());
    EXPECT_EQ(topViewController(), nullptr);
}

TEST(ApplicationHelpers, TheLegacyCallAnswersAtOnce) {
    const platform::testing::FakePlatform fakes;
    fakes.application->call = platform::OpenCall::legacy;
    ASSERT_TRUE(fakes.install());
    std::vector<bool> outcomes;
    for (const bool opens : {true, false}) {
        fakes.application->opens = opens;
        openURL(*platform::Url::parse("quillo://x"), [&](bool success) { outcomes.push_back(success); });
    }
    openURL(*platform::Url::parse("quillo://y"), nullptr);
    openURL(*platform::Url::parse("quillo://z"), [](bool) { throw std::runtime_error("listener"); });
    EXPECT_THAT(outcomes, ElementsAre(true, false));
    EXPECT_THAT(fakes.application->opened,
                ElementsAre("quillo://x", "quillo://x", "quillo://y", "quillo://z"));
    EXPECT_FALSE(isRTL());
}

TEST(ApplicationHelpers, TheTopControllerIsTheLastPresented) {
    using platform::testing::FakeViewController;
    const platform::testing::FakePlatform fakes;
    const auto top = std::make_shared<FakeViewController>();
    fakes.application->rootViewController =
        std::make_shared<FakeViewController>(std::make_shared<FakeViewController>(top));
    ASSERT_TRUE(fakes.install());
    EXPECT_EQ(topViewController(), top);
}

TEST(ApplicationHelpers, AControllerThatPresentsItselfDoesNotHangTheHost) {
    class Circle final : public platform::ViewController, public std::enable_shared_from_this<Circle> {
        std::shared_ptr<ViewController> presentedViewController() override { return shared_from_this(); }
    };
    const platform::testing::FakePlatform fakes;
    fakes.application->rootViewController = std::make_shared<Circle>();
    ASSERT_TRUE(fakes.install());
    EXPECT_EQ(topViewController(), fakes.application->rootViewController);
}

TEST(NotificationCenterHelpers, TheLibrarysCenterIsItsOwn) {
    const platform::testing::FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    std::vector<std::string> heard;
    fakes.notificationCenter->addObserver("news", [&] { heard.emplace_back("default"); });
    const auto observer = qlsdkCenter().addObserver("news", [&] { heard.emplace_back("library"); });
    qlsdkCenter().post("news");
    EXPECT_THAT(heard, ElementsAre("library"));
    qlsdkCenter().removeObserver(observer);
}

}  // namespace
}  // namespace qlsdk
