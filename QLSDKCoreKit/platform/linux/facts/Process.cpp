#include "QLSDKCoreKit/platform/Process.h"

#include <array>
#include <string_view>

#include <stdlib.h>
#include <sys/utsname.h>

#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/facts/DeviceFacts.h"
#include "QLSDKCoreKit/platform/linux/facts/LoadedSymbols.h"
#include "QLSDKCoreKit/platform/linux/files/FileReading.h"

namespace qlsdk::platform {

namespace {

constexpr std::size_t kStatusBytes = 64 * 1024;

struct KnownMachine {
    std::string_view prefix;
    Processor processor;
};

// The beginnings of what uname calls the machine; the first that fits holds. Behind it stand the byte order
// and what the version leaves open, such as the "l" of "armv7l".
constexpr std::array kMachines = {
    KnownMachine{"x86_64", {0x01000007, 3}},
    KnownMachine{"i386", {7, 3}},
    KnownMachine{"i486", {7, 4}},
    KnownMachine{"i586", {7, 5}},
    KnownMachine{"i686", {7, 3}},
    KnownMachine{"aarch64", {0x0100000C, 0}},
    KnownMachine{"arm64", {0x0100000C, 0}},
    KnownMachine{"armv6", {12, 6}},
    KnownMachine{"armv7", {12, 9}},
    KnownMachine{"armv8", {12, 13}},
    KnownMachine{"arm", {12, 0}},
};

Processor processor() noexcept {
    utsname names{};
    return ::uname(&names) == 0 ? processorOf(names.machine) : Processor{};
}

bool isTraced(std::string_view status) noexcept {
    constexpr std::string_view kField = "\nTracerPid:\t";
    const std::size_t place = status.find(kField);
    return place != std::string_view::npos && !status.substr(place + kField.size()).starts_with("0\n");
}

class LinuxProcess final : public Process {
  public:
    std::optional<std::string> environmentVariable(const std::string& name) override {
        const char* value = ::getenv(name.c_str());
        return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
    }
    bool isClassLoaded(const std::string& name) override { return isSymbolLoaded(name); }
    ProcessRecord processRecord() override {
        // A container may hide /proc. That says nothing about a debugger and is no broken kernel query, so
        // the answer is "not traced" and not a failure, which would end the host.
        const std::optional<Data> status =
            readFileFrom(FileOrigin::system, "/proc/self/status", kStatusBytes);
        return {.result = 0, .flags = status && isTraced(textOf(*status)) ? kProcessTraced : 0};
    }
    std::uint32_t cpuType() override { return processor().type; }
    std::uint32_t cpuSubtype() override { return processor().subtype; }
};

}  // namespace

Processor processorOf(std::string_view machine) noexcept {
    for (const KnownMachine& known : kMachines) {
        if (machine.starts_with(known.prefix)) return known.processor;
    }
    return {};
}

std::shared_ptr<Process> makeLinuxProcess() {
    return std::make_shared<LinuxProcess>();
}

}  // namespace qlsdk::platform
