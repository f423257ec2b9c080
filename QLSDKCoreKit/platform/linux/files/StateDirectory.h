#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/platform/Bundle.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"

namespace qlsdk::platform {

enum class StateKind { cache, config, data };

/// One of the application's own directories:
///
///     $XDG_CACHE_HOME or ~/.cache          / bundle identifier
///     $XDG_CONFIG_HOME or ~/.config        / bundle identifier
///     $XDG_DATA_HOME or ~/.local/share     / bundle identifier
///
/// and, where a home is given, HOME/cache, HOME/config and HOME/data in place of the first column. Any
/// thread.
class StateDirectory {
  public:
    StateDirectory(StateKind kind, std::optional<std::string> home, std::shared_ptr<Bundles> bundles);

    /// Creates what is missing with mode 0700 under any umask and returns the absolute path, which is settled
    /// by the first call; absent when there is no home. A directory that cannot be created is still named.
    [[nodiscard]] std::optional<std::string> create();

  private:
    [[nodiscard]] std::optional<std::string> base() const;

    const StateKind kind_;
    const std::optional<std::string> home_;
    const std::shared_ptr<Bundles> bundles_;
    OwnedForkSafeOnce<std::optional<std::string>> path_;
};

/// Makes the directory with mode 0700 under any umask, and what is missing above it. Whether that worked
/// shows when it is used.
void makeDirectories(const std::string& path);

/// `identifier` as one file name: separators, control bytes, '%' and a leading dot are percent-encoded, so
/// that different identifiers stay different up to 200 bytes. A fixed word for an empty one.
[[nodiscard]] std::string safeFileName(std::string_view identifier);

}  // namespace qlsdk::platform
