#pragma once

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/network/QLAuthHeaderProvider.h"

namespace qlsdk {

/// Identifies the calling app to the web service by a client auth token, made afresh for each request. Any
/// thread.
class QLSDK_EXPORT QLPayloadProvider final : public QLAuthHeaderProvider {
  public:
    /// "X-Quill-SDK-Client-Auth-Token".
    [[nodiscard]] std::string authHeaderName() override;
    [[nodiscard]] std::optional<std::string> authHeaderValue() override;
};

}  // namespace qlsdk
