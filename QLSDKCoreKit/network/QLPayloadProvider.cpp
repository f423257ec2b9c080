#include "QLSDKCoreKit/network/QLPayloadProvider.h"

#include "QLSDKCoreKit/network/QLSDKPayload.h"

namespace qlsdk {

std::string QLPayloadProvider::authHeaderName() {
    return "X-Quill-SDK-Client-Auth-Token";
}

std::optional<std::string> QLPayloadProvider::authHeaderValue() {
    return QLSDKPayload::serializePayload({});
}

}  // namespace qlsdk
