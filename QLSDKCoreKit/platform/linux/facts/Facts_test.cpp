#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <syslog.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/facts/DeviceFacts.h"
#include "QLSDKCoreKit/platform/linux/facts/LoadedSymbols.h"

namespace {
struct QLSDKLocalClass {
    virtual ~QLSDKLocalClass() = default;
    [[nodiscard]] virtual int answer() const { return 2; }
};
}  // namespace
// None of these is exported.
struct QLSDKProbeClass {
    virtual ~QLSDKProbeClass() = default;
    [[nodiscard]] virtual int answer() const { return 1; }
};
// An optimising compiler leaves out the type information of a class that only lives in a function.
[[gnu::used]] static const QLSDKProbeClass theProbe;
extern "C" {
[[gnu::weak]] extern int qlsdkProbeDeclared;
[[gnu::noinline]] static int qlsdkProbeFunction() {
    return 4711;
}
}

namespace qlsdk::platform {
namespace {

TEST(LinuxDevice, FactsLoseWhatAHeaderFieldCannotCarry) {
    const std::pair<std::string, std::string> cases[] = {
        {"Standard PC (Q35 + ICH9, 2009)\n", "Standard PC Q35 + ICH9, 2009"},
        {"a\r\nX-Evil: 1;b", "aX-Evil: 1b"},
        {"  \t\n", "fallback"},
        {"\xC3\xA9;()", "fallback"},
        {" a\x1F ~\x7F\x80! ", "a ~!"},
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
    EXPECT_EQ(osReleaseValue("A=1\n\nVERSION_ID=\"\"", "VERSION_ID"), "");
    EXPECT_EQ(osReleaseValue("VERSION_ID=\"1'", "VERSION_ID"), "\"1'");
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

TEST(LinuxProcess, KnowsClassesAndSymbolsAlsoThoseThatTheLoaderDoesNot) {
    const auto process = makeLinuxProcess();
    EXPECT_EQ(qlsdkProbeFunction() + (&qlsdkProbeDeclared == nullptr ? 0 : 1) + theProbe.answer(), 4712);
    static const QLSDKLocalClass local [[gnu::used]];
    EXPECT_EQ(local.answer(), 2);
    for (const char* name : {"malloc", "QLSDKProbeClass", "QLSDKLocalClass", "qlsdkProbeFunction"}) {
        EXPECT_TRUE(process->isClassLoaded(name)) << name;
    }
    for (const char* name :
         {"XCTestCase", "QLSDKProbe", "ProbeClass", "qlsdkProbeDeclared", "QLSDKHiddenClass", ""}) {
        EXPECT_FALSE(process->isClassLoaded(name)) << name;
    }
    ASSERT_NE(::dlopen(QLSDK_BUNDLE_PROBE, RTLD_NOW), nullptr) << ::dlerror();
    EXPECT_TRUE(process->isClassLoaded("QLSDKHiddenClass"));
    EXPECT_TRUE(process->isClassLoaded("qlsdkBundleProbe"));

    // Without a table of local symbols, as what is installed usually is.
    Dl_info stripped{};
    link_map* loaded = nullptr;
    ASSERT_NE(::dladdr1(reinterpret_cast<const void*>(&::openlog), &stripped,
                        reinterpret_cast<void**>(&loaded), RTLD_DL_LINKMAP),
              0);
    // The first 48 KiB end with one of them, and the next ones begin with one.
    std::uintptr_t symbols = 0;
    std::uintptr_t names = 0;
    for (const ElfW(Dyn)* entry = loaded->l_ld; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_SYMTAB) symbols = entry->d_un.d_ptr;
        if (entry->d_tag == DT_STRTAB) names = entry->d_un.d_ptr;
    }
    constexpr std::size_t kFirstPiece = 48 * 1024 / sizeof(ElfW(Sym));
    for (const std::size_t index : {kFirstPiece - 1, kFirstPiece}) {
        const auto& symbol = reinterpret_cast<const ElfW(Sym)*>(symbols)[index];
        const char* name = reinterpret_cast<const char*>(names) + symbol.st_name;
        ASSERT_NE(symbol.st_shndx, SHN_UNDEF);
        EXPECT_TRUE(fileDefines(stripped.dli_fname, name)) << name;
    }
    EXPECT_TRUE(fileDefines(stripped.dli_fname, "openlog"));
    EXPECT_FALSE(fileDefines(stripped.dli_fname, "openlo"));
    EXPECT_FALSE(fileDefines("/proc/self/maps", "openlog"));
    EXPECT_FALSE(fileDefines("/nowhere", "openlog"));
}

TEST(LinuxProcess, NamesProcessorsByWhatTheSystemCallsThem) {
    struct Case {
        const char* machine;
        std::uint32_t type;
        std::uint32_t subtype;
    };
    for (const Case& c :
         {Case{"x86_64", 0x01000007, 3}, Case{"i386", 7, 3}, Case{"i686", 7, 3}, Case{"armv5tel", 12, 0},
          Case{"arm", 12, 0}, Case{"armeb", 12, 0}, Case{"armv6l", 12, 6}, Case{"armv7l", 12, 9},
          Case{"armv7hl", 12, 9}, Case{"armv7b", 12, 9}, Case{"armv8l", 12, 13},
          Case{"aarch64", 0x0100000C, 0}, Case{"aarch64_be", 0x0100000C, 0}, Case{"arm64", 0x0100000C, 0},
          Case{"riscv64", 0, 0}, Case{"", 0, 0}}) {
        const Processor processor = processorOf(c.machine);
        EXPECT_EQ(processor.type, c.type) << c.machine;
        EXPECT_EQ(processor.subtype, c.subtype) << c.machine;
    }
}

TEST(LinuxProcess, ReadsTheEnvironmentAsItIs) {
    const auto process = makeLinuxProcess();
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
    EXPECT_EQ(escapedForLog("a\n\r\t\x1F ~\x7F\x80\\"), "a\\n\\r\\t\\x1f ~\\x7f\x80\\");
}

}  // namespace
}  // namespace qlsdk::platform
