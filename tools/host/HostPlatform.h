#pragma once

#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"

namespace quillkit {

/// The platform of the host that the tool plays. Built with the desktop target it opens links and knows
/// fonts; the keychain lies with the rest of the state below `options.home` in either build.
[[nodiscard]] qlsdk::platform::Platform makeHostPlatform(
    const qlsdk::platform::LinuxPlatformOptions& options);

}  // namespace quillkit
