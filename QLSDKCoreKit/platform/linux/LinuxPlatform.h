#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "QLSDKCoreKit/platform/Export.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/Value.h"

namespace qlsdk::platform {

/// Where the HTTP session of the Linux platform connects to, and how. Certificates are verified in every
/// case.
struct HttpOptions {
    /// "HOST:PORT" that every connection goes to instead of the URL's own; the name in the certificate is
    /// still the URL's. For staging servers and tests.
    std::optional<std::string> connectTo;
    /// PEM file of the certificate authorities to trust instead of the system's.
    std::optional<std::string> caFile;
    /// Proxy URL; absent takes the environment's, empty uses none.
    std::optional<std::string> proxy;
    std::chrono::milliseconds connectTimeout{30'000};
    /// A task without a byte sent or received for this long ends with an error.
    std::chrono::milliseconds idleTimeout{60'000};
};

/// How the Linux platform differs from its defaults.
struct LinuxPlatformOptions {
    /// Property list of the main bundle. Absent: the environment variable "QLSDK_INFO_PLIST", else
    /// "<executable>.Info.plist", else "Info.plist" beside the executable.
    std::optional<std::string> infoPlist;
    /// The same as a value: a dictionary here is the main bundle's property list, and no file is read for it.
    Value infoDictionary{};
    /// Directory below which all state is kept ("cache", "config", "data") instead of the XDG directories.
    std::optional<std::string> home;
    HttpOptions http;
};

/// The Linux adapters with the given options. Starts no thread and touches no file yet.
[[nodiscard]] QLSDK_EXPORT Platform makeLinuxPlatform(const LinuxPlatformOptions& options);

}  // namespace qlsdk::platform
