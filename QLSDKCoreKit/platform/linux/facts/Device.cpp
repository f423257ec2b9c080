#include "QLSDKCoreKit/platform/Device.h"

#include <algorithm>

#include <sys/utsname.h>

#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"
#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/linux/facts/DeviceFacts.h"
#include "QLSDKCoreKit/platform/linux/files/FileReading.h"

namespace qlsdk::platform {

namespace {

constexpr std::size_t kFactBytes = 64;
constexpr std::size_t kFileBytes = 64 * 1024;

std::string systemText(const char* path) {
    const std::optional<Data> bytes = readFileFrom(FileOrigin::system, path, kFileBytes);
    return bytes ? textOf(*bytes) : std::string();
}

std::string readModel() {
    std::string model = systemText("/sys/class/dmi/id/product_name");
    // Boards without DMI describe themselves in the device tree.
    if (model.empty()) model = systemText("/sys/firmware/devicetree/base/model");
    return headerSafeFact(model, "Linux PC");
}

std::string kernelRelease() {
    utsname names{};
    return ::uname(&names) == 0 ? names.release : "";
}

std::string readVersion() {
    for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
        const std::string version = osReleaseValue(systemText(path), "VERSION_ID");
        if (!version.empty()) return headerSafeFact(version, "0");
    }
    return headerSafeFact(kernelRelease(), "0");
}

// The facts are read once: they do not change, and every request names them.
class LinuxDevice final : public Device {
  public:
    std::string model() override { return model_.get(readModel); }
    std::string systemName() override { return "Linux"; }
    std::string systemVersion() override { return version_.get(readVersion); }

  private:
    OwnedForkSafeOnce<std::string> model_;
    OwnedForkSafeOnce<std::string> version_;
};

}  // namespace

std::string headerSafeFact(std::string_view raw, std::string_view fallback) {
    std::string text;
    for (const char c : raw) {
        const bool allowed = c >= ' ' && c <= '~' && c != ';' && c != '(' && c != ')';
        if (allowed && (c != ' ' || !text.empty()) && text.size() < kFactBytes) text += c;
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text.empty() ? std::string(fallback) : text;
}

std::string osReleaseValue(std::string_view text, std::string_view key) {
    while (!text.empty()) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (!line.starts_with(key) || !line.substr(key.size()).starts_with('=')) continue;
        line.remove_prefix(key.size() + 1);
        if (line.size() >= 2 && (line.front() == '"' || line.front() == '\'') &&
            line.back() == line.front()) {
            line = line.substr(1, line.size() - 2);
        }
        return std::string(line);
    }
    return {};
}

std::shared_ptr<Device> makeLinuxDevice() {
    return std::make_shared<LinuxDevice>();
}

}  // namespace qlsdk::platform
