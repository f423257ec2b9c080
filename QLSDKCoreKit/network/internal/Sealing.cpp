#include "QLSDKCoreKit/network/internal/Sealing.h"

#include <algorithm>
#include <array>
#include <atomic>

#include "QLSDKCoreKit/platform/Diagnostics.h"

namespace qlsdk {

namespace {

constexpr std::array<std::uint8_t, 32> kKey = {
#include "SealingKey.inc"
};

constexpr std::array<std::uint8_t, 32> kDevelopmentKey = {
#include "DevelopmentKey.inc"
};

}  // namespace

platform::Aes256Key sealingKey() noexcept {
    return kKey;
}

platform::Aes256Key developmentSealingKey() noexcept {
    return kDevelopmentKey;
}

void reportDevelopmentKey() noexcept {
    static std::atomic_flag isReported;
    if (!std::ranges::equal(kKey, kDevelopmentKey) || isReported.test_and_set(std::memory_order_relaxed))
        return;
    platform::reportDiagnostic({platform::DiagnosticKind::developmentKey,
                                "tokens are sealed with the public development key and prove nothing"});
}

int sealPayload(std::span<std::uint8_t> output, platform::Block16& tag, const platform::Block16& nonce,
                platform::Aes256Key key, int, DataView input, int) noexcept {
    return platform::aes256GcmSeal(output, tag, nonce, key, input) ? kSealingSuccess : 0;
}

}  // namespace qlsdk
