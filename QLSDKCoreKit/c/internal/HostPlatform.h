#pragma once

#include "QLSDKCoreKit/c/QLSDK.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk {

/// The platform of this system for these options, without the host's controls. Defined once for each system.
[[nodiscard]] platform::Platform platformFor(const QLSDKStartOptions& options);

}  // namespace qlsdk
