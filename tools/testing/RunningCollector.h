#pragma once

#include <string>
#include <vector>

#include "tools/testing/Subprocess.h"
#include <nlohmann/json.hpp>

#include "QLSDKCoreKit/platform/testing/FakeStores.h"

namespace quillkit::testing {

inline constexpr const char* kApiUrl = "https://api.quillo.example";

/// A `quillkit collect` that listens, with a log file and state of its own unless told otherwise.
class RunningCollector {
  public:
    explicit RunningCollector(const std::vector<std::string>& options = {}, const std::string& state = {});

    [[nodiscard]] const std::string& address() const noexcept { return address_; }
    [[nodiscard]] const std::string& authorityFile() const noexcept { return authorityFile_; }
    [[nodiscard]] Subprocess& process() noexcept { return process_; }

    /// The words of a `curl` that asks this collector for `path` of the web service and prints the status.
    [[nodiscard]] std::vector<std::string> curl(const std::string& path,
                                                const std::vector<std::string>& options) const;
    /// Posts the bytes with curl.
    [[nodiscard]] Finished post(const std::string& path, const std::string& body,
                                const std::vector<std::string>& options = {}) const;

    /// What the log file holds now.
    [[nodiscard]] std::vector<nlohmann::ordered_json> logged() const;

  private:
    qlsdk::platform::testing::TemporaryDirectories directory_;
    Subprocess process_;
    std::string address_;
    std::string authorityFile_;
};

/// Writes a file; returns its path.
std::string writeFile(const std::string& path, const std::string& content);

}  // namespace quillkit::testing
