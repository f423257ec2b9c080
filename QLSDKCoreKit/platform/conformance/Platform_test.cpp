#include "QLSDKCoreKit/platform/Platform.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <ostream>
#include <set>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk::platform::conformance {
namespace {

struct PlatformFactory {
    const char* name;
    /// `home` exists for as long as the platform.
    Platform (*make)(const std::string& home);

    friend void PrintTo(const PlatformFactory& factory, std::ostream* out) { *out << factory.name; }
};

Platform makeFake(const std::string&) {
    return testing::FakePlatform().platform();
}
Platform makeOnLinux(const std::string& home) {
    return makeLinuxPlatform({.infoPlist = {}, .home = home, .http = {}});
}

// The small ports in one suite; the keychain and the user defaults have theirs.
class PlatformConformance : public ::testing::TestWithParam<PlatformFactory> {
  protected:
    testing::TemporaryDirectories home;
    Platform platform = GetParam().make(home.path());
};

TEST(Platform, HasEveryPortThatItsHostLeavesOut) {
    ASSERT_EQ(install({}), InstallResult::installed);
    const Platform& it = current();
    EXPECT_TRUE(it.clock && it.bundles && it.userDefaults && it.keychain && it.urlSession && it.application);
    EXPECT_TRUE(it.device && it.locale && it.process && it.log && it.directories && it.random && it.queues);
    EXPECT_TRUE(it.fonts && it.notificationCenter && it.activity);
}

TEST_P(PlatformConformance, ClockTellsPlausibleSeconds) {
    const double now = platform.clock->secondsSince1970();
    EXPECT_TRUE(std::isfinite(now));
    EXPECT_GT(now, 1.6e9);
    EXPECT_LT(now, 1e11) << "milliseconds, perhaps";
}

TEST_P(PlatformConformance, RandomFillsEveryByteAnew) {
    std::vector<std::uint8_t> first(100'000);
    std::vector<std::uint8_t> second(32);
    std::vector<std::uint8_t> third(32);
    ASSERT_EQ(platform.random->copyBytes(first), 0);
    ASSERT_EQ(platform.random->copyBytes(second), 0);
    ASSERT_EQ(platform.random->copyBytes(third), 0);
    EXPECT_NE(second, third);
    EXPECT_TRUE(std::any_of(first.end() - 32, first.end(), [](std::uint8_t byte) { return byte != 0; }));
    EXPECT_EQ(platform.random->copyBytes({}), 0);
}

TEST_P(PlatformConformance, DirectoriesNameOnePrivateDirectory) {
    const std::optional<std::string> path = platform.directories->cachesDirectory();
    ASSERT_TRUE(path);
    EXPECT_EQ(path->front(), '/');
    EXPECT_NE(path->back(), '/');
    struct stat status;
    ASSERT_EQ(::stat(path->c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, mode_t{0700});
    EXPECT_EQ(platform.directories->cachesDirectory(), path);
}

TEST_P(PlatformConformance, BundlesAreNeverNullAndProgramCodeIsTheMainOne) {
    const auto main = platform.bundles->mainBundle();
    ASSERT_NE(main, nullptr);
    EXPECT_EQ(platform.bundles->mainBundle(), main);
    EXPECT_EQ(platform.bundles->bundleForAddress(nullptr), main);
    EXPECT_EQ(platform.bundles->bundleForAddress(reinterpret_cast<const void*>(&makeFake)), main);
    EXPECT_NE(platform.bundles->bundleForAddress(reinterpret_cast<const void*>(&::stat)), nullptr);
    EXPECT_EQ(main->path().front(), '/');
    EXPECT_NE(main->path().back(), '/');
}

TEST_P(PlatformConformance, DeviceFactsFitIntoAHeaderField) {
    for (const std::string& fact :
         {platform.device->model(), platform.device->systemName(), platform.device->systemVersion()}) {
        EXPECT_FALSE(fact.empty());
        EXPECT_TRUE(std::all_of(fact.begin(), fact.end(), [](char c) {
            return c >= ' ' && c <= '~' && c != ';' && c != '(' && c != ')';
        })) << fact;
    }
}

TEST_P(PlatformConformance, LocaleIdentifierIsMadeOfItsCodes) {
    const std::string language = platform.locale->languageCode().value_or("");
    const std::optional<std::string> country = platform.locale->countryCode();
    EXPECT_EQ(platform.locale->identifier(), country ? language + "_" + *country : language);
}

TEST_P(PlatformConformance, ProcessProbesAnswerWithoutFailing) {
    EXPECT_EQ(platform.process->environmentVariable("QLSDK_NO_SUCH_VARIABLE"), std::nullopt);
    EXPECT_FALSE(platform.process->isClassLoaded("QLSDKNoSuchClass"));
    EXPECT_EQ(platform.process->processRecord().result, 0);
    const std::set<std::uint32_t> known = {0, 7, 12, 0x01000007, 0x0100000C};
    EXPECT_TRUE(known.contains(platform.process->cpuType()));
}

TEST_P(PlatformConformance, FontsNeverAnswerWithAnotherFont) {
    EXPECT_EQ(platform.fonts->fontWithName("No Such Font 4711", 12), nullptr);
}

TEST_P(PlatformConformance, ApplicationCompletesTheModernCallOnceOnTheMainQueue) {
    int calls = 0;
    platform.application->openUrl("x://h", {}, [&](bool) { ++calls; });
    platform.application->openUrl("x://h", {}, nullptr);
    platform.queues->mainQueue()->drain();
    platform.queues->mainQueue()->drain();
    EXPECT_EQ(calls, 1);
}

INSTANTIATE_TEST_SUITE_P(Fake, PlatformConformance, ::testing::Values(PlatformFactory{"Fake", &makeFake}));
INSTANTIATE_TEST_SUITE_P(Linux, PlatformConformance,
                         ::testing::Values(PlatformFactory{"Linux", &makeOnLinux}));

}  // namespace
}  // namespace qlsdk::platform::conformance
