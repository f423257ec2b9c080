#include "QLSDKCoreKit/platform/linux/internal/OpenSsl.h"

#include <openssl/crypto.h>

#include "QLSDKCoreKit/platform/linux/internal/WorkGate.h"

namespace qlsdk::platform {

bool ensureOpenSsl() noexcept {
    static const bool ready = [] {
        const bool initialised = OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) == 1;
        // For a host that came first: its teardown, at exit or by its own call, finds our threads parked.
        OPENSSL_atexit([] { WorkGate::close(); });
        WorkGate::arm();
        return initialised;
    }();
    return ready;
}

}  // namespace qlsdk::platform
