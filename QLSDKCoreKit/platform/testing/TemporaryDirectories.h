#pragma once

#include <string>

#include "QLSDKCoreKit/platform/Directories.h"

namespace qlsdk::platform::testing {

/// A caches directory of the test's own that is removed with this object.
class TemporaryDirectories final : public Directories {
  public:
    TemporaryDirectories();
    ~TemporaryDirectories() override;

    std::optional<std::string> cachesDirectory() override { return path_; }
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

  private:
    std::string path_;
};

}  // namespace qlsdk::platform::testing
