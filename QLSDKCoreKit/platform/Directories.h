#pragma once

#include <optional>
#include <string>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

/// Port: where the library keeps its files.
class QLSDK_EXPORT Directories {
  public:
    virtual ~Directories() = default;

    /// The application's own caches directory, an absolute path without a trailing slash; absent when none
    /// can be named. Created with mode 0700 when it is missing; a directory that cannot be created is still
    /// named, and the writes into it fail. Any thread.
    [[nodiscard]] virtual std::optional<std::string> cachesDirectory() = 0;
};

}  // namespace qlsdk::platform
