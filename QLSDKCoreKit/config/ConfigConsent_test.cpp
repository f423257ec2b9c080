// The one fetch of the configuration behind the host's consent.

#include <gtest/gtest.h>

#include "QLSDKCoreKit/config/QLSDKDynamicConfigArchive.h"
#include "QLSDKCoreKit/config/QLSDKDynamicConfigManager.h"
#include "QLSDKCoreKit/control/Consent.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/HostControls.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

using platform::Consent;

constexpr std::string_view kBody = R"({"data":{"config":{"a":{"b":1}}}})";

class ConfigConsent : public ::testing::Test {
  protected:
    void start(Consent consent, platform::DryRunSink dryRun = nullptr) {
        platform::Platform platform = fakes.platform();
        platform.controls.consent = consent;
        platform.controls.dryRun = std::move(dryRun);
        ASSERT_EQ(platform::install(std::move(platform)), platform::InstallResult::installed);
        manager = QLSDKDynamicConfigManager::create({}, "1.0");
    }
    void update() {
        manager->updateIfNecessary(std::make_shared<const DynamicConfigCallback>(
            [this](bool success) { heard += success ? 'y' : 'n'; }));
        run();
    }
    void say(Consent consent) {
        platform::setConsent(consent);
        run();
    }
    void run() { fakes.queues->runSerialQueuesUntilIdle(); }
    void answer() {
        ASSERT_TRUE(fakes.urlSession->answer(200, {}, kBody));
        run();
    }

    platform::testing::FakePlatform fakes;
    std::shared_ptr<QLSDKDynamicConfigManager> manager;
    std::string heard;
};

TEST_F(ConfigConsent, TheFetchWaitsWhileItIsUndecided) {
    start(Consent::undecided);
    update();
    update();
    EXPECT_EQ(heard, "");
    EXPECT_TRUE(fakes.urlSession->requests().empty());
    say(Consent::granted);
    EXPECT_EQ(fakes.urlSession->requests().size(), 1u);
    answer();
    EXPECT_EQ(heard, "yy");
}

TEST_F(ConfigConsent, ARefusalAnswersThoseWhoWaitAndDoesNotUseTheFetchUp) {
    start(Consent::undecided);
    update();
    say(Consent::refused);
    EXPECT_EQ(heard, "n");
    update();
    EXPECT_EQ(heard, "nn");
    say(Consent::granted);
    EXPECT_TRUE(fakes.urlSession->requests().empty()) << "nobody waits any more";
    update();
    answer();
    EXPECT_EQ(heard, "nny");
}

TEST_F(ConfigConsent, AFetchThatARefusalCutsHasFailed) {
    start(Consent::granted);
    update();
    EXPECT_EQ(fakes.urlSession->waiting(), 1u);
    say(Consent::refused);
    EXPECT_EQ(heard, "n");
    EXPECT_EQ(manager->state(), QLSDKDynamicConfigStateDone);
}

TEST_F(ConfigConsent, AManagerThatGoesWhileItWaitsAnswersItsCallbacks) {
    start(Consent::undecided);
    update();
    manager.reset();
    EXPECT_EQ(heard, "n");
    say(Consent::granted);
    EXPECT_TRUE(fakes.urlSession->requests().empty());
}

TEST_F(ConfigConsent, ADryRunEndsTheFetchAndBlamesNoServer) {
    int seen = 0;
    start(Consent::granted, [&seen](const platform::UrlRequest&) { ++seen; });
    update();
    EXPECT_EQ(heard, "n");
    EXPECT_EQ(seen, 1);
    for (const platform::Diagnostic& told : platform::diagnostics()) {
        EXPECT_EQ(told.kind, platform::DiagnosticKind::developmentKey);
    }
}

}  // namespace
}  // namespace qlsdk
