#include "QLSDKCoreKit/network/QLSDKPayload.h"

#include <algorithm>

#include "QLSDKCoreKit/network/internal/Sealing.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/Random.h"
#include "QLSDKCoreKit/values/internal/Hex.h"

namespace qlsdk {

namespace {

constexpr std::uint32_t kBlockSize = 4;

Data padded(const std::string& text) {
    const auto length = static_cast<std::uint32_t>(text.size());
    const std::uint32_t paddedLength = QLSDKPayload::getPaddedLength(length, kBlockSize);
    Data bytes = dataOf(text);
    bytes.resize(paddedLength, static_cast<std::uint8_t>(paddedLength - length));
    return bytes;
}

}  // namespace

std::optional<std::string> QLSDKPayload::serializePayload(DataView data) {
    // A health check of the random source before any work; the bytes themselves are not used.
    platform::Block16 probe{};
    if (!platform::copyRandomBytes(probe)) return std::nullopt;
    return "v2:" + describe(formatSerializedPayload(serialize(data)));
}

std::string QLSDKPayload::serialize(DataView) {
    const platform::Platform& platform = platform::current();
    const std::int64_t nowMillis = truncateToInt64(platform.clock->secondsSince1970() * 1000.0);
    return describe(
               platform.bundles->mainBundle()->textForInfoDictionaryKey(platform::kBundleIdentifierKey)) +
           ":" + std::to_string(nowMillis);
}

std::optional<std::string> QLSDKPayload::formatSerializedPayload(
    const std::optional<std::string>& plaintext) {
    if (!plaintext) return std::nullopt;
    platform::Block16 nonce{};
    if (!platform::copyRandomBytes(nonce)) return std::nullopt;

    const Data input = padded(*plaintext);
    Data output(input.size());
    platform::Block16 tag{};
    constexpr int kReserved = 0;
    if (sealPayload(output, tag, nonce, sealingKey(), kReserved, input, kReserved) != kSealingSuccess) {
        platform::reportDiagnostic({platform::DiagnosticKind::resources,
                                    "the cipher of the client auth token fails; requests carry no token"});
        return std::nullopt;
    }
    reportDevelopmentKey();
    return convertDataToHexString(nonce) + ":" + convertDataToHexString(tag) + ":" +
           convertDataToHexString(output);
}

std::uint32_t QLSDKPayload::getPaddedLength(std::uint32_t length, std::uint32_t blockSize) noexcept {
    return blockSize != 0 ? blockSize + length - length % blockSize : length;
}

std::string QLSDKPayload::convertBytesToHexString(const std::uint8_t* bytes, std::size_t length) {
    return bytes != nullptr ? convertDataToHexString({bytes, length}) : std::string();
}

std::string QLSDKPayload::convertDataToHexString(DataView data) {
    std::string text(data.size() * 2, '0');
    char* out = text.data();
    for (const std::uint8_t byte : data) out = putHex(out, byte, kUpperHex);
    return text;
}

}  // namespace qlsdk
