#include "QLSDKCoreKit/core/QLSDKTweaks.h"

#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"

namespace qlsdk {

const QLSDKTweaks& QLSDKTweaks::shared() {
    static constinit platform::ForkSafeOnce<QLSDKTweaks> tweaks;
    return tweaks.get([] { return QLSDKTweaks(); });
}

}  // namespace qlsdk
