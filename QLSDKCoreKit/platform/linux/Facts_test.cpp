#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <syslog.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/linux/internal/DeviceFacts.h"
#include "QLSDKCoreKit/platform/linux/internal/LinuxAdapters.h"

namespace qlsdk::platform {
namespace {

TEST(LinuxDevice, FactsLoseWhatAHeaderFieldCannotCarry) {
    const std::pair<std::string, std::string> cases[] = {
        {"Standard PC (Q35 + ICH9, 2009)\n", "Standard PC Q35 + ICH9, 2009"},
        {"a\r\nX-Evil: 1;b", "aX-Evil: 1b"},
        {"  \t\n", "fallback"},
        {"\xC3\xA9;()", "fallback"},
        {std::string(1000, 'm'), std::string(64, 'm')},
        {std::string("Raspberry Pi\0", 13), "Raspberry Pi"},
    };
    for (const auto& [raw, expected] : cases) EXPECT_EQ(headerSafeFact(raw, "fallback"), expected);
}

TEST(LinuxDevice, FindsTheVersionInAnOsRelease) {
    EXPECT_EQ(osReleaseValue("NAME=x\nVERSION_ID=\"12\"\n", "VERSION_ID"), "12");
    EXPECT_EQ(osReleaseValue("VERSION_ID='22.04'", "VERSION_ID"), "22.04");
    EXPECT_EQ(osReleaseValue("VERSION_IDX=1\nVERSION_ID=39\n", "VERSION_ID"), "39");
    EXPECT_EQ(osReleaseValue("OLD_VERSION_ID=1\nVERSION_ID", "VERSION_ID"), "");
    EXPECT_EQ(osReleaseValue("VERSION_ID=\"", "VERSION_ID"), "\"");
}

TEST(LinuxLocale, ReadsTheEnvironmentInItsOrder) {
    struct Case {
        const char* all;
        const char* messages;
        const char* lang;
        const char* expected;
    };
    const auto locale = makeLinuxLocale();
    for (const Case& c :
         {Case{"", "", "en_US.UTF-8", "en/US/en_US"}, Case{"de_DE@euro", "fr_FR", "it_IT", "de/DE/de_DE"},
          Case{"", "fr.UTF-8", "it_IT", "fr/-/fr"}, Case{"C", "", "en_US", "-/-/"},
          Case{"POSIX", "", "", "-/-/"}, Case{"", "", "C.UTF-8", "-/-/"}, Case{"", "", "", "-/-/"},
          Case{"", "", "../../etc_x", "-/-/"}, Case{"", "", "en_U\nS", "en/-/en"},
          Case{"", "", "es_419", "es/419/es_419"}}) {
        ASSERT_EQ(::setenv("LC_ALL", c.all, 1), 0);
        ASSERT_EQ(::setenv("LC_MESSAGES", c.messages, 1), 0);
        ASSERT_EQ(::setenv("LANG", c.lang, 1), 0);
        EXPECT_EQ(locale->languageCode().value_or("-") + "/" + locale->countryCode().value_or("-") + "/" +
                      locale->identifier(),
                  c.expected);
    }
}

TEST(LinuxProcess, SeesADebugger) {
    EXPECT_EQ(makeLinuxProcess()->processRecord().flags & kProcessTraced, 0U);
    const auto traced = [] {
        if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) return 1;
        const ProcessRecord record = makeLinuxProcess()->processRecord();
        return record.result == 0 && (record.flags & kProcessTraced) != 0 ? 0 : 2;
    };
    EXPECT_EXIT(::_exit(traced()), ::testing::ExitedWithCode(0), "");
}

TEST(LinuxProcess, KnowsSymbolsAndTheEnvironmentAsItIs) {
    const auto process = makeLinuxProcess();
    EXPECT_TRUE(process->isClassLoaded("malloc"));
    EXPECT_FALSE(process->isClassLoaded("XCTestCase"));
    ASSERT_EQ(::setenv("QLSDK_TEST_EMPTY", "", 1), 0);
    EXPECT_EQ(process->environmentVariable("QLSDK_TEST_EMPTY"), "");
    ASSERT_EQ(::unsetenv("QLSDK_TEST_EMPTY"), 0);
    EXPECT_EQ(process->environmentVariable("QLSDK_TEST_EMPTY"), std::nullopt);
}

TEST(LinuxLog, WritesDataAndNeverAFormatUnderTheHostsIdentity) {
    ::openlog("host", LOG_PERROR, LOG_DAEMON);
    ::testing::internal::CaptureStderr();
    makeLinuxLog()->write("100%s%n done");
    const std::string printed = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(printed.find("host: 100%s%n done"), std::string::npos) << printed;
}

}  // namespace
}  // namespace qlsdk::platform
