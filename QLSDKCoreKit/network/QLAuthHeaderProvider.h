#pragma once

#include <optional>
#include <string>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk {

/// Supplies the authentication header of a request. Asked on the thread that builds the request, once for
/// each conversion; the value is computed afresh each time. Must not throw.
class QLSDK_EXPORT QLAuthHeaderProvider {
  public:
    virtual ~QLAuthHeaderProvider() = default;

    [[nodiscard]] virtual std::string authHeaderName() = 0;
    /// Absent leaves the header out of the request.
    [[nodiscard]] virtual std::optional<std::string> authHeaderValue() = 0;
};

}  // namespace qlsdk
