#include "QLSDKCoreKit/core/QLAppEnvironment.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"
#include "QLSDKCoreKit/platform/internal/InternedText.h"

namespace {

using qlsdk::platform::current;

constexpr std::uint32_t kCpuTypeX86 = 7;
constexpr std::uint32_t kCpuTypeArm = 12;
constexpr std::uint32_t kCpuTypeX86_64 = 0x01000007;

// A C function has no way to say that memory ran out, so it answers as if it knew nothing.
template <typename Answer, typename Question>
Answer answerOr(Answer unknown, Question question) noexcept {
    try {
        return question();
    } catch (...) {
        return unknown;
    }
}

bool isRunningTests() {
    qlsdk::platform::Process& process = *current().process;
    return process.environmentVariable("XCInjectBundle").has_value() ||
           process.environmentVariable("XCInjectBundleInto").has_value() ||
           process.isClassLoaded("XCTestCase");
}

[[noreturn]] void failAssertion() {
    constexpr const char* kFailure =
        "Assertion failed: (junk == 0), function QLIsRunningWithDebugger, file QLAppEnvironment, line 70.";
    // First where nothing can go wrong any more: whoever looks for the end of this process looks here, too.
    std::fprintf(stderr, "%s\n", kFailure);
    qlsdk::platform::logLine(kFailure);
    std::abort();
}

std::string armName(std::uint32_t subtype) {
    switch (subtype) {
        case 6:
            return "ARMV6";
        case 9:
            return "ARMV7";
        case 13:
            return "ARMV8";
        default:
            return "ARM";
    }
}

std::string architecture(std::uint32_t type, std::uint32_t subtype) {
    switch (type) {
        case kCpuTypeX86:
            return "x86";
        case kCpuTypeArm:
            return armName(subtype);
        case kCpuTypeX86_64:
            return "x86_64";
        // On purpose: 64-bit ARM (0x0100000C) is "Unknown", because that is what devices have always
        // reported.
        default:
            return "Unknown";
    }
}

}  // namespace

bool QLIsRunningTests() {
    static constinit qlsdk::platform::ForkSafeOnce<bool> answer;
    return answerOr(false, [] { return answer.get(isRunningTests); });
}

bool QLIsRunningExtension() {
    static constinit qlsdk::platform::ForkSafeOnce<bool> answer;
    return answerOr(false, [] {
        return answer.get([] { return current().bundles->mainBundle()->path().ends_with(".appex"); });
    });
}

bool QLIsRunningWithDebugger() {
    const auto junkAndFlags =
        answerOr(qlsdk::platform::ProcessRecord{}, [] { return current().process->processRecord(); });
    if (junkAndFlags.result != 0) failAssertion();
    return (junkAndFlags.flags & qlsdk::platform::kProcessTraced) != 0;
}

bool QLIsAppStoreReceiptSandbox() {
    return false;
}

const char* QLArchitecture() {
    return answerOr<const char*>(nullptr, [] {
        qlsdk::platform::Process& process = *current().process;
        // One after the other: the order of a call's arguments would be the compiler's.
        const std::uint32_t type = process.cpuType();
        const std::uint32_t subtype = process.cpuSubtype();
        return qlsdk::platform::internedText(architecture(type, subtype));
    });
}

const char* QLLocale() {
    return answerOr<const char*>(nullptr, [] {
        qlsdk::platform::Locale& locale = *current().locale;
        return qlsdk::platform::internedText(qlsdk::describe(locale.languageCode()) + "-" +
                                             qlsdk::describe(locale.countryCode()));
    });
}

const char* QLKitVersionForClass(const void* addressInKit) {
    return answerOr<const char*>(nullptr, [addressInKit] {
        const auto bundle = current().bundles->bundleForAddress(addressInKit);
        return qlsdk::platform::internedText(
            bundle->textForInfoDictionaryKey(qlsdk::platform::kBundleVersionKey));
    });
}
