#include "QLSDKCoreKit/platform/linux/internal/OpenSsl.h"

#include <openssl/crypto.h>

namespace qlsdk::platform {

bool ensureOpenSsl() noexcept {
    static const bool ready = OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) == 1;
    return ready;
}

}  // namespace qlsdk::platform
