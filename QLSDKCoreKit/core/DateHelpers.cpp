#include <cmath>

#include "QLSDKCoreKit/core/Helpers.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk {

std::int64_t currentTimeMillis() {
    return truncateToInt64(std::floor(platform::current().clock->secondsSince1970() * 1000.0));
}

}  // namespace qlsdk
