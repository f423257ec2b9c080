#pragma once

#include "QLSDKCoreKit/platform/Export.h"
#include "QLSDKCoreKit/platform/NotificationCenter.h"

namespace qlsdk {

/// The library's own notification center, so that its notifications never reach the observers of the
/// process's default one. Made on first use, never destroyed. Any thread.
[[nodiscard]] QLSDK_EXPORT platform::NotificationCenter& qlsdkCenter();

}  // namespace qlsdk
