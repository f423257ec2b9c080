#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/config/QLSDKDynamicConfigEntity.h"

namespace qlsdk {

/// Entities by their names. No pointer is null.
using DynamicConfigEntities = std::map<std::string, std::shared_ptr<QLSDKDynamicConfigEntity>>;

/// Keeps the last fetched configuration in the file "qlsdk-dynamic-config.plist" of the caches directory and
/// gives it back once. Has no state but that file, so all archives of a process are one.
///
/// Synchronous file access on the calling thread; any thread. Calls are not serialised against each other:
/// two that read at the same moment may both be given the configuration, or one of them nothing.
class QLSDK_EXPORT QLSDKDynamicConfigArchive final {
  public:
    /// Replaces the stored configuration; an empty one is stored, too. False when nothing is given, when
    /// there is no caches directory, when the archive would exceed what `unarchiveSync` reads (4 MiB), or
    /// when the write fails; the earlier file then stays.
    [[nodiscard]] bool archiveSync(const std::optional<DynamicConfigEntities>& entities) const noexcept;

    /// The stored configuration; absent when there is none or the file is damaged. Removes the file in every
    /// case, so that each stored configuration is handed out once. Entries that are no entity are left out.
    [[nodiscard]] std::optional<DynamicConfigEntities> unarchiveSync() const;

  private:
    /// Found out once per process; absent when the platform has no caches directory.
    [[nodiscard]] static const std::optional<std::string>& _archivePath();
};

}  // namespace qlsdk
