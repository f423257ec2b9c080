#include "QLSDKCoreKit/core/NotificationCenterHelpers.h"

namespace qlsdk {

platform::NotificationCenter& qlsdkCenter() {
    static platform::NotificationCenter& center = *new platform::NotificationCenter;
    return center;
}

}  // namespace qlsdk
