#include "QLSDKCoreKit/platform/linux/codecs/OpenSsl.h"

#include <atomic>

#include <openssl/crypto.h>

#include "QLSDKCoreKit/platform/linux/threads/WorkGate.h"

namespace qlsdk::platform {

namespace {

constinit std::atomic<bool> isReady{false};
constinit std::atomic<bool> isTornDown{false};

void beTornDown() noexcept {
    isTornDown = true;
    WorkGate::close();
}

}  // namespace

bool ensureOpenSsl() noexcept {
    if (isTornDown) return false;
    if (isReady) return true;
    // For a host that came first: its teardown, at exit or by its own call, finds our threads parked. Without
    // memory for either handler OpenSSL is not used, and the next call tries again. No one-time block: a fork
    // in the middle of one would leave it closed for the child. Where OpenSSL had no memory for its own state
    // at its first use it never tries again, says nothing and crashes at the next use; only this call tells.
    isReady = OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) == 1 &&
              OSSL_LIB_CTX_get0_global_default() != nullptr && OPENSSL_atexit([] { beTornDown(); }) == 1 &&
              WorkGate::arm();
    return isReady;
}

bool isOpenSslTornDown() noexcept {
    return isTornDown;
}

}  // namespace qlsdk::platform
