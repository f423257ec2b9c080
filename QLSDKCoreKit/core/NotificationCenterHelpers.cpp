#include "QLSDKCoreKit/core/ApplicationHelpers.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"

namespace qlsdk {

platform::NotificationCenter& qlsdkCenter() {
    static constinit platform::ForkSafeOnce<platform::NotificationCenter> center;
    return center.get([] { return platform::NotificationCenter(); });
}

}  // namespace qlsdk
