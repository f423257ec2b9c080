#include "tools/host/HostPlatform.h"

#include "QLSDKCoreKit/platform/desktop/DesktopPlatform.h"

namespace quillkit {

qlsdk::platform::Platform makeHostPlatform(const qlsdk::platform::LinuxPlatformOptions& options) {
    qlsdk::platform::Platform platform = qlsdk::platform::makeDesktopPlatform(options);
    platform.keychain = qlsdk::platform::makeLinuxPlatform(options).keychain;
    return platform;
}

}  // namespace quillkit
