#pragma once

#include <array>
#include <memory>

#include "tools/cli/CommandLine.h"
#include "tools/host/ObservingPorts.h"

namespace quillkit {

/// What every subcommand that runs the library itself understands.
inline constexpr std::array<Option, 5> kHostOptions{
    {{"--info-plist", "FILE", "property list of the host application to play"},
     {"--connect-to", "HOST:PORT", "connects there instead of to the web service"},
     {"--ca", "FILE", "PEM file of the authority to trust instead of the system's"},
     {"--home", "DIR", "keeps all state below this directory"},
     {"--verbose", "", "prints the library's log lines on standard error"}}};

/// The observers that stand in the installed platform.
struct Host {
    std::shared_ptr<ObservingUrlSession> urlSession;
    std::shared_ptr<ObservingUserDefaults> userDefaults;
};

/// Makes this process a host application as the options say. Once, before the first use of the library.
/// Throws `UsageError` for options that cannot be meant.
[[nodiscard]] Host installHost(const Arguments& arguments);

}  // namespace quillkit
