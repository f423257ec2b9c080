#pragma once

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"

namespace qlsdk::platform {

/// The Linux platform for a program with a desktop around it. Three members differ from `makeLinuxPlatform`:
///
/// - `application` opens URLs with the handler that the user has chosen for the scheme, and runs from right
///   to left where the user's language does;
/// - `keychain` keeps its items in the user's Secret Service, in the default collection;
/// - `fonts` knows the fonts of fontconfig.
///
/// Starts no thread, touches no file and connects to no bus yet. None of the three needs a GLib main loop in
/// the host or disturbs one that is there. Install it before the kit's first use:
///
///     const auto result = install(makeDesktopPlatform());
[[nodiscard]] QLSDK_EXPORT Platform makeDesktopPlatform(const LinuxPlatformOptions& options = {});

}  // namespace qlsdk::platform
