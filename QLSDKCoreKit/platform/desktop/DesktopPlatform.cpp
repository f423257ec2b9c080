#include "QLSDKCoreKit/platform/desktop/DesktopPlatform.h"

#include "QLSDKCoreKit/platform/desktop/DesktopAdapters.h"

namespace qlsdk::platform {

Platform makeDesktopPlatform(const LinuxPlatformOptions& options) {
    Platform platform = makeLinuxPlatform(options);
    platform.application = makeGioApplication(platform.queues, platform.locale);
    platform.keychain = makeSecretKeychain();
    platform.fonts = makeFontconfigFonts();
    return platform;
}

}  // namespace qlsdk::platform
