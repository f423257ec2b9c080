#pragma once

#include <string_view>

#include "QLSDKCoreKit/platform/Export.h"
#include "QLSDKCoreKit/platform/Value.h"

namespace qlsdk::platform {

/// Port: the application's standard user defaults, a small persistent key/value store.
///
/// Any thread. Values are property-list values (no null, no unsigned integer above the signed maximum). Both
/// calls are synchronous and may touch a file.
class QLSDK_EXPORT UserDefaults {
  public:
    virtual ~UserDefaults() = default;

    /// The stored value; null when there is none or the store cannot be read.
    [[nodiscard]] virtual Value objectForKey(std::string_view key) = 0;

    /// Stores `value`; null removes the key. Atomic towards other threads and processes: two writers lose no
    /// key of each other's. A value that cannot be written is still answered by this process until it ends.
    virtual void setObjectForKey(const Value& value, std::string_view key) = 0;
};

}  // namespace qlsdk::platform
