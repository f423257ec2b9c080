#include "QLSDKCoreKit/core/QLSDKTweaks.h"

namespace qlsdk {

const QLSDKTweaks& QLSDKTweaks::shared() {
    static const QLSDKTweaks& tweaks = *new QLSDKTweaks;
    return tweaks;
}

}  // namespace qlsdk
