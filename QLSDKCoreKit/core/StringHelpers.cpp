#include "QLSDKCoreKit/core/Helpers.h"
#include "QLSDKCoreKit/core/internal/PercentEncoding.h"

namespace qlsdk {

std::string urlEncodeString(std::string_view text) {
    return percentEncoded(text, "-._~");
}

std::string randomUrlSafeStringWithSize(std::size_t size) {
    return ql_base64UrlEncodedString(ql_randomDataWithSize(size));
}

std::string randomBase64EncodedStringOfLength(std::size_t length) {
    return ql_base64EncodedString(ql_randomDataWithSize(length));
}

}  // namespace qlsdk
