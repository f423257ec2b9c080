#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk {

/// The identifier of this installation: made once, kept in the keychain, the same after every restart. An
/// object caches what it has read and belongs to one thread; make a new one wherever it is needed.
class QLSDK_EXPORT QLSDKInstallation {
  public:
    /// 36 characters of upper-case hexadecimal digits and hyphens. The first call reads the keychain; where
    /// nothing comes back, whatever the reason, a new identifier is made and stored. Absent when the stored
    /// bytes are not UTF-8, or when no identifier can be made because the random source fails; the next
    /// call tries again.
    [[nodiscard]] std::optional<std::string> installationId();

    /// The keychain key it is kept under.
    [[nodiscard]] static std::string_view installationIdKey() noexcept;

  private:
    std::optional<std::string> installationId_;
};

}  // namespace qlsdk
