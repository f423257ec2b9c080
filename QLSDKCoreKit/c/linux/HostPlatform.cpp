#include "QLSDKCoreKit/c/internal/HostPlatform.h"

#include <utility>

#include "QLSDKCoreKit/c/internal/Facade.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"

namespace qlsdk {

namespace {

/// Null, which lets a file be read, without entries.
Value infoOf(const QLSDKStartOptions& options) {
    if (options.info == nullptr || options.infoCount == 0) return {};
    Dictionary info;
    for (std::size_t i = 0; i < options.infoCount; ++i) {
        const QLSDKInfoEntry& entry = options.info[i];
        if (entry.key != nullptr && entry.value != nullptr) info.set(entry.key, entry.value);
    }
    return info;
}

}  // namespace

platform::Platform platformFor(const QLSDKStartOptions& options) {
    platform::LinuxPlatformOptions linuxOptions;
    linuxOptions.infoPlist = textOrAbsent(options.infoPlistPath);
    linuxOptions.infoDictionary = infoOf(options);
    linuxOptions.home = textOrAbsent(options.homeDirectory);
    linuxOptions.http.connectTo = textOrAbsent(options.connectTo);
    linuxOptions.http.caFile = textOrAbsent(options.caFile);
    return platform::makeLinuxPlatform(linuxOptions);
}

}  // namespace qlsdk
