#include "QLSDKCoreKit/core/QLAppEnvironment.h"

#include <cstdio>
#include <new>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/core/QLSDKTweaks.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace {

using qlsdk::platform::testing::FakePlatform;

TEST(QLAppEnvironment, AnEmptyInjectionVariableMeansTestsForGood) {
    const FakePlatform fakes;
    fakes.process->environment["XCInjectBundleInto"] = "";
    ASSERT_TRUE(fakes.install());
    EXPECT_TRUE(QLIsRunningTests());
    fakes.process->environment.clear();
    EXPECT_TRUE(QLIsRunningTests());
}

TEST(QLAppEnvironment, TheOtherInjectionVariableMeansTestsToo) {
    const FakePlatform fakes;
    fakes.process->environment["XCInjectBundle"] = "x";
    ASSERT_TRUE(fakes.install());
    EXPECT_TRUE(QLIsRunningTests());
}

TEST(QLAppEnvironment, ALoadedTestClassMeansTests) {
    const FakePlatform fakes;
    fakes.process->loadedClasses = {"XCTestCase"};
    ASSERT_TRUE(fakes.install());
    EXPECT_TRUE(QLIsRunningTests());
}

TEST(QLAppEnvironment, NoTestsWithoutASignOfThemAndThatForGood) {
    const FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    EXPECT_FALSE(QLIsRunningTests());
    fakes.process->environment["XCInjectBundle"] = "late";
    EXPECT_FALSE(QLIsRunningTests());
}

TEST(QLAppEnvironment, AnExtensionIsToldByItsSuffix) {
    const FakePlatform fakes;
    fakes.bundles->setMain({}, "/opt/share.appex");
    ASSERT_TRUE(fakes.install());
    EXPECT_TRUE(QLIsRunningExtension());
}

TEST(QLAppEnvironment, TheSuffixOfAnExtensionIsLowerCase) {
    const FakePlatform fakes;
    fakes.bundles->setMain({}, "/opt/share.APPEX");
    ASSERT_TRUE(fakes.install());
    EXPECT_FALSE(QLIsRunningExtension());
}

TEST(QLAppEnvironment, TheDebuggerIsTheTracedBitAskedAnew) {
    const FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    for (const std::uint32_t flags : {0x800U, 0xFFFFF7FFU, 0xFFFFFFFFU, 0U}) {
        fakes.process->record.flags = flags;
        EXPECT_EQ(QLIsRunningWithDebugger(), (flags & 0x800U) != 0) << flags;
    }
    EXPECT_FALSE(QLIsAppStoreReceiptSandbox());
}

TEST(QLAppEnvironmentDeathTest, AKernelThatCannotBeAskedIsFatal) {
    class StandardErrorLog final : public qlsdk::platform::Log {
        void write(std::string_view line) noexcept override {
            std::fprintf(stderr, "log: %.*s\n", static_cast<int>(line.size()), line.data());
        }
    };
    const FakePlatform fakes;
    fakes.process->record.result = -1;
    qlsdk::platform::Platform platform = fakes.platform();
    platform.log = std::make_shared<StandardErrorLog>();
    ASSERT_EQ(qlsdk::platform::install(platform), qlsdk::platform::InstallResult::installed);
    EXPECT_DEATH(
        (void)QLIsRunningWithDebugger(),
        "^Assertion failed: .junk == 0., function QLIsRunningWithDebugger, file QLAppEnvironment, line 70."
        "\nlog: Assertion failed");
}

TEST(QLAppEnvironment, AsksForTheProcessorsTypeFirst) {
    class Recording final : public qlsdk::platform::Process {
      public:
        std::string asked;
        std::optional<std::string> environmentVariable(const std::string&) override { return {}; }
        bool isClassLoaded(const std::string&) override { return false; }
        qlsdk::platform::ProcessRecord processRecord() override { throw std::bad_alloc(); }
        std::uint32_t cpuType() override {
            asked += "type ";
            return 12;
        }
        std::uint32_t cpuSubtype() override {
            asked += "subtype ";
            return 9;
        }
    };
    const FakePlatform fakes;
    const auto recording = std::make_shared<Recording>();
    qlsdk::platform::Platform platform = fakes.platform();
    platform.process = recording;
    ASSERT_EQ(qlsdk::platform::install(platform), qlsdk::platform::InstallResult::installed);
    EXPECT_STREQ(QLArchitecture(), "ARMV7");
    EXPECT_EQ(recording->asked, "type subtype ");
    EXPECT_FALSE(QLIsRunningWithDebugger()) << "no memory to ask";
}

TEST(QLAppEnvironment, NamesTheArchitecture) {
    struct Case {
        std::uint32_t type;
        std::uint32_t subtype;
        const char* name;
    };
    const Case cases[] = {{7, 3, "x86"},    {7, 9, "x86"},    {0x01000007, 3, "x86_64"},
                          {12, 6, "ARMV6"}, {12, 9, "ARMV7"}, {12, 13, "ARMV8"},
                          {12, 11, "ARM"},  {12, 0, "ARM"},   {0x0100000C, 2, "Unknown"},
                          {0, 0, "Unknown"}};
    const FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    for (const Case& c : cases) {
        fakes.process->type = c.type;
        fakes.process->subtype = c.subtype;
        EXPECT_STREQ(QLArchitecture(), c.name) << c.type << "/" << c.subtype;
    }
}

TEST(QLAppEnvironment, TheLocaleShowsWhatItLacks) {
    const FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    EXPECT_STREQ(QLLocale(), "en-US");
    fakes.locale->country.reset();
    EXPECT_STREQ(QLLocale(), "en-(null)");
    fakes.locale->language.reset();
    EXPECT_STREQ(QLLocale(), "(null)-(null)");
}

TEST(QLAppEnvironment, AKitWithoutAVersionHasNone) {
    const FakePlatform fakes;
    const int inKit = 0;
    const int inHost = 0;
    fakes.bundles->setKit(&inKit, {{"CFBundleVersion", "2.0.1"}});
    ASSERT_TRUE(fakes.install());
    EXPECT_STREQ(QLKitVersionForClass(&inKit), "2.0.1");
    EXPECT_STREQ(QLKitVersionForClass(&inHost), "7.1");
    fakes.bundles->setKit(&inKit, {});
    EXPECT_EQ(QLKitVersionForClass(&inKit), nullptr);
}

TEST(QLSDKTestData, TheAccessTokenFollowsTheEnvironment) {
    const FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    const qlsdk::QLSDKTestData& testData = qlsdk::QLSDKTestData::shared();
    EXPECT_FALSE(testData.oauthAccessToken());
    fakes.process->environment["uiTestAccessToken"] = "token";
    EXPECT_EQ(testData.oauthAccessToken(), "token");
    fakes.process->environment.clear();
    EXPECT_FALSE(testData.oauthAccessToken());
}

}  // namespace
