#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk::platform {

/// Where the HTTP session of the Linux platform connects to, and how. Certificates are verified in every
/// case.
struct HttpOptions {
    /// "HOST:PORT", or "[ADDRESS]:PORT" for an IPv6 address, that every connection goes to instead of the
    /// URL's own; the name in the certificate is still the URL's. For staging servers and tests. Anything
    /// else, a host without a port above all, is refused: every task then ends with an error and nothing is
    /// sent, lest it reach the URL's own server.
    std::optional<std::string> connectTo;
    /// PEM file of the certificate authorities to trust instead of the system's.
    std::optional<std::string> caFile;
    /// Proxy URL; absent takes the environment's, empty uses none.
    std::optional<std::string> proxy;
    /// For each of the time-outs, zero and less stand for the default.
    std::chrono::milliseconds connectTimeout{30'000};
    /// A task without a byte sent or received for this long ends with an error.
    std::chrono::milliseconds idleTimeout{60'000};
    /// A task that is not over this long after its turn on the wire began, the name look-up and the
    /// connecting included, ends with an error, however busily it goes on. The default is what the largest
    /// batch, 128 KiB, takes at 4 kbit/s; a server that never comes to an end holds up others no longer.
    std::chrono::milliseconds totalTimeout{300'000};
    /// The most uploads of one queue that wait or are on the wire at a time: where no server answers, the
    /// records behind them stay on disk instead of in memory. 0 counts as 1.
    std::size_t mostUploadsOfAQueue = 64;
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
