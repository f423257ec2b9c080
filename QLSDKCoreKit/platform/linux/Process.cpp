#include "QLSDKCoreKit/platform/Process.h"

#include <array>
#include <string_view>

#include <dlfcn.h>
#include <stdlib.h>
#include <sys/utsname.h>

#include "QLSDKCoreKit/platform/linux/internal/FileReading.h"
#include "QLSDKCoreKit/platform/linux/internal/LinuxAdapters.h"

namespace qlsdk::platform {

namespace {

constexpr std::size_t kStatusBytes = 64 * 1024;

struct Processor {
    std::string_view machine;
    std::uint32_t type;
    std::uint32_t subtype;
};

// What uname calls the machine, in the numbers of the port.
constexpr std::array kProcessors = {
    Processor{"x86_64", 0x01000007, 3},
    Processor{"i386", 7, 3},
    Processor{"i486", 7, 4},
    Processor{"i586", 7, 5},
    Processor{"i686", 7, 3},
    Processor{"armv6l", 12, 6},
    Processor{"armv7l", 12, 9},
    Processor{"armv8l", 12, 13},
    Processor{"aarch64", 0x0100000C, 0},
};

Processor processor() noexcept {
    utsname names{};
    if (::uname(&names) != 0) return {};
    for (const Processor& known : kProcessors) {
        if (known.machine == names.machine) return known;
    }
    return {};
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
    bool isClassLoaded(const std::string& name) override {
        return ::dlsym(RTLD_DEFAULT, name.c_str()) != nullptr;
    }
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

std::shared_ptr<Process> makeLinuxProcess() {
    return std::make_shared<LinuxProcess>();
}

}  // namespace qlsdk::platform
