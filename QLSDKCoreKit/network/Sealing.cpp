#include "QLSDKCoreKit/network/internal/Sealing.h"

#include <array>

namespace qlsdk {

namespace {

constexpr int kSealingFailure = 0;

constexpr std::array<std::uint8_t, 32> kKey = {
#include "SealingKey.inc"
};

}  // namespace

platform::Aes256Key sealingKey() noexcept {
    return kKey;
}

int sealPayload(std::span<std::uint8_t> output, platform::Block16& tag, const platform::Block16& nonce,
                platform::Aes256Key key, int, DataView input, int) noexcept {
    return platform::aes256GcmSeal(output, tag, nonce, key, input) ? kSealingSuccess : kSealingFailure;
}

int openPayload(std::span<std::uint8_t> output, const platform::Block16& tag, const platform::Block16& nonce,
                platform::Aes256Key key, DataView input) noexcept {
    return platform::aes256GcmOpen(output, tag, nonce, key, input) ? kSealingSuccess : kSealingFailure;
}

}  // namespace qlsdk
