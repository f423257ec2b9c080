#pragma once

#include <optional>
#include <string>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk {

/// A new random (version 4) UUID in its canonical upper-case form, 36 characters. Absent when the system's
/// random source fails: an identifier that is not unique is worse than none. Any thread.
[[nodiscard]] QLSDK_EXPORT std::optional<std::string> makeUuidString();

}  // namespace qlsdk
