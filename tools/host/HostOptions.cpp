#include "tools/host/HostOptions.h"

#include <iostream>

#include "tools/cli/Failure.h"
#include "tools/host/HostPlatform.h"

#include "QLSDKCoreKit/platform/Files.h"

namespace quillkit {

namespace {

using namespace qlsdk::platform;

class StandardErrorLog final : public Log {
  public:
    void write(std::string_view line) noexcept override {
        // One call for the whole line: several threads write.
        const std::string whole = std::string(line) + "\n";
        std::cerr.write(whole.data(), static_cast<std::streamsize>(whole.size()));
    }
};

void checkReadable(const Arguments& arguments, std::string_view option) {
    const auto path = arguments.value(option);
    if (path.has_value() && !fileExists(*path)) throw Failure("cannot read " + *path);
}

void checkEndpoint(const std::optional<std::string>& hostAndPort) {
    if (!hostAndPort.has_value()) return;
    const std::size_t colon = hostAndPort->rfind(':');
    if (colon == 0 || colon == std::string::npos) throw UsageError("--connect-to wants HOST:PORT");
    (void)integerArgument(std::string_view(*hostAndPort).substr(colon + 1), "the port of --connect-to", 1,
                          65535);
}

LinuxPlatformOptions platformOptions(const Arguments& arguments) {
    LinuxPlatformOptions options;
    options.infoPlist = arguments.value("--info-plist");
    options.home = arguments.value("--home");
    options.http.connectTo = arguments.value("--connect-to");
    options.http.caFile = arguments.value("--ca");
    return options;
}

}  // namespace

Host installHost(const Arguments& arguments) {
    checkEndpoint(arguments.value("--connect-to"));
    // The library would only be quiet about these; a person wants to know.
    checkReadable(arguments, "--info-plist");
    checkReadable(arguments, "--ca");
    Platform platform = makeHostPlatform(platformOptions(arguments));
    Host host{std::make_shared<ObservingUrlSession>(platform.urlSession),
              std::make_shared<ObservingUserDefaults>(platform.userDefaults)};
    platform.urlSession = host.urlSession;
    platform.userDefaults = host.userDefaults;
    if (arguments.has("--verbose")) platform.log = std::make_shared<StandardErrorLog>();
    if (install(std::move(platform)) != InstallResult::installed)
        throw Failure("the library is in use already");
    return host;
}

}  // namespace quillkit
