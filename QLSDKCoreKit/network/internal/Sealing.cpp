#include "QLSDKCoreKit/network/internal/Sealing.h"

#include <array>

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

int sealPayload(std::span<std::uint8_t> output, platform::Block16& tag, const platform::Block16& nonce,
                platform::Aes256Key key, int, DataView input, int) noexcept {
    return platform::aes256GcmSeal(output, tag, nonce, key, input) ? kSealingSuccess : 0;
}

}  // namespace qlsdk
