#pragma once

#include <functional>
#include <iostream>
#include <memory>
#include <string_view>
#include <utility>

#include <QLSDKCoreKit/platform/linux/LinuxPlatform.h>

/// The host's log: prints every line, and tells when the library's first work on the main queue is done.
class ExampleLog final : public qlsdk::platform::Log {
  public:
    explicit ExampleLog(std::function<void()> onConfigUpdate) : onConfigUpdate_(std::move(onConfigUpdate)) {}

    // Any thread; lines come complete and free of control characters.
    void write(std::string_view line) noexcept override {
        std::cout << line << std::endl;
        if (line.starts_with("[QuillKit] Dynamic config update status: ")) onConfigUpdate_();
    }

  private:
    const std::function<void()> onConfigUpdate_;
};

/// Installs the Linux platform with that log, before anything else of the library is used. The first argument
/// of the program, "HOST:PORT", is where requests go instead of to the real servers.
[[nodiscard]] inline bool installExamplePlatform(int argc, char** argv,
                                                 std::function<void()> onConfigUpdate) {
    using namespace qlsdk::platform;
    LinuxPlatformOptions options;
    if (argc > 1) options.http.connectTo = argv[1];
    Platform platform = makeLinuxPlatform(options);
    platform.log = std::make_shared<ExampleLog>(std::move(onConfigUpdate));
    return install(std::move(platform)) == InstallResult::installed;
}
