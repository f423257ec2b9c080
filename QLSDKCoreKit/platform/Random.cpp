#include "QLSDKCoreKit/platform/Random.h"

#include <cerrno>

#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk::platform {

bool copyRandomBytes(std::span<std::uint8_t> bytes) {
    if (current().random->copyBytes(bytes) == 0) return true;
    reportDiagnostic({DiagnosticKind::random, "the random source gives no bytes", errno});
    return false;
}

}  // namespace qlsdk::platform
