#pragma once

#include <string_view>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk::platform {

/// Port: the application's standard user defaults, a small persistent key/value store.
///
/// Any thread. Values are property-list values (no null, no unsigned integer above the signed maximum); dates
/// keep their fraction of a second. Both calls may touch a file, and neither waits for another process.
class QLSDK_EXPORT UserDefaults {
  public:
    virtual ~UserDefaults() = default;

    /// The stored value; null when there is none or the store cannot be read.
    [[nodiscard]] virtual Value objectForKey(std::string_view key) = 0;

    /// Stores `value`; null removes the key. Atomic towards other threads and processes: two writers lose no
    /// key of each other's, and of two values for a key the later one stays. Where that would have to wait,
    /// the value is in the store a moment later; until then, and for as long as it cannot be written, this
    /// process answers it from memory, and each later write takes it along.
    virtual void setObjectForKey(const Value& value, std::string_view key) = 0;
};

}  // namespace qlsdk::platform
