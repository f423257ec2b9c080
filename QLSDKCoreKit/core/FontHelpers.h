#pragma once

#include <memory>

#include "QLSDKCoreKit/platform/Export.h"
#include "QLSDKCoreKit/platform/Fonts.h"

namespace qlsdk {

// The fonts that the client setup names, at `pointSize` points. Null when the system does not know the name:
// there is no fallback to another font. Any thread.

[[nodiscard]] QLSDK_EXPORT std::shared_ptr<const platform::Font> qlsdkRegularFontOfSize(double pointSize);
[[nodiscard]] QLSDK_EXPORT std::shared_ptr<const platform::Font> qlsdkBoldFontOfSize(double pointSize);

}  // namespace qlsdk
