#include "QLSDKCoreKit/core/internal/Assertion.h"

#include <thread>

#include <gmock/gmock.h>

#include "QLSDKCoreKit/core/QLSDKClientSetup.h"
#include "QLSDKCoreKit/core/internal/RecordingLogger_test.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

using ::testing::ElementsAre;

TEST(Assertion, MakesTheSetupToNameTheClient) {
    platform::testing::FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    testing::RecordingLogger logger;
    reportFailedAssertion("-[Thing do:]", "result == 0", "Unable: 35");
    EXPECT_THAT(
        logger.reports(),
        ElementsAre(
            "Assertion failure in -[Thing do:]: [ClientID=abc] Condition not satisfied: (result == 0), "
            "reason: 'Unable: 35'"));
    EXPECT_EQ(fakes.queues->main()->waiting(), 1U);
}

TEST(Assertion, ParameterFormShowsTheNameInTwoPairsOfParentheses) {
    platform::testing::FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    testing::RecordingLogger logger;
    reportInvalidParameter("-[Queue initWithArchiveName:]", "archiveName");
    EXPECT_THAT(logger.reports(),
                ElementsAre("Assertion failure in -[Queue initWithArchiveName:]: [ClientID=abc] "
                            "Condition not satisfied: ((archiveName)), "
                            "reason: 'Invalid parameter not satisfying: archiveName'"));
}

TEST(Assertion, PercentSignsAreData) {
    platform::testing::FakePlatform fakes;
    fakes.bundles->setMain({{"QLSDKClientId", "%s%n%@%%"}});
    ASSERT_TRUE(fakes.install());
    testing::RecordingLogger logger;
    reportFailedAssertion("-[%s %n]", "a % s == 0", "100%n %%s %1$@");
    EXPECT_THAT(
        logger.reports(),
        ElementsAre(
            "Assertion failure in -[%s %n]: [ClientID=%s%n%@%%] Condition not satisfied: (a % s == 0), "
            "reason: '100%n %%s %1$@'"));
}

TEST(Assertion, ALoggerThatMakesTheSetupHearsThatItsClientIdIsMissing) {
    platform::testing::FakePlatform fakes;
    fakes.bundles->setMain({});
    ASSERT_TRUE(fakes.install());
    testing::RecordingLogger logger;
    logger.onReport = [] { (void)QLSDKClientSetup::sharedInstance(); };
    QLLogAssertAsHandledException("host", "asks for the setup");
    EXPECT_THAT(
        logger.reports(),
        ElementsAre("host: asks for the setup",
                    "Assertion failure in -[QLSDKClientSetup initPrivate]: [ClientID=(null)] Condition not "
                    "satisfied: (_clientID), reason: 'QLSDKClientId MUST be set in your Info.plist!'"));
}

/// Breaks an expectation while the setup reads its property list, on the reading thread and on another.
class AssertingBundles final : public platform::Bundles {
  public:
    std::shared_ptr<const platform::Bundle> mainBundle() override {
        reportFailedAssertion("-[Bundles same]", "ready", "asked too early");
        std::thread([] { reportFailedAssertion("-[Bundles other]", "ready", "asked too early"); }).join();
        return std::make_shared<const platform::Bundle>("/opt/example", Dictionary{{"QLSDKClientId", "abc"}});
    }
    std::shared_ptr<const platform::Bundle> bundleForAddress(const void*) override { return mainBundle(); }
};

TEST(Assertion, DoesNotWaitForTheSetupUnderConstruction) {
    const platform::testing::FakePlatform fakes;
    platform::Platform platform = fakes.platform();
    platform.bundles = std::make_shared<AssertingBundles>();
    ASSERT_EQ(platform::install(platform), platform::InstallResult::installed);
    testing::RecordingLogger logger;
    EXPECT_EQ(QLSDKClientSetup::sharedInstance().clientID(), Value("abc"));
    EXPECT_THAT(
        logger.reports(),
        ElementsAre(
            "Assertion failure in -[Bundles same]: [ClientID=(null)] Condition not satisfied: (ready), "
            "reason: 'asked too early'",
            "Assertion failure in -[Bundles other]: [ClientID=(null)] Condition not satisfied: (ready), "
            "reason: 'asked too early'"));
    reportFailedAssertion("-[Bundles later]", "ready", "known by now");
    EXPECT_EQ(logger.reports().back(),
              "Assertion failure in -[Bundles later]: [ClientID=abc] Condition not satisfied: (ready), "
              "reason: 'known by now'");
}

}  // namespace
}  // namespace qlsdk
