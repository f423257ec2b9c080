#pragma once

#include <string>
#include <vector>

#include "tools/testing/RunningCollector.h"
#include "tools/testing/Subprocess.h"

#include "QLSDKCoreKit/platform/testing/FakeStores.h"

namespace quillkit::testing {

/// A host application that quillkit plays, with a property list and state of its own: "com.example.app" in
/// version 4.2 with the client identifier "client-7".
class HostApplication {
  public:
    HostApplication();

    [[nodiscard]] const std::string& home() const noexcept { return home_; }
    /// The path of a file in the application's caches directory.
    [[nodiscard]] std::string cacheFile(const std::string& name) const;

    /// Runs the subcommand `words` to its end, with no server to talk to.
    [[nodiscard]] Finished run(const std::vector<std::string>& words) const;
    /// The same against the collector.
    [[nodiscard]] Finished run(const RunningCollector& collector,
                               const std::vector<std::string>& words) const;

  private:
    [[nodiscard]] Finished run(const std::vector<std::string>& words,
                               const std::vector<std::string>& options) const;

    qlsdk::platform::testing::TemporaryDirectories directory_;
    const std::string plist_ = directory_.path() + "/Info.plist";
    const std::string home_ = directory_.path() + "/home";
};

}  // namespace quillkit::testing
