#include "QLSDKCoreKit/core/ApplicationHelpers.h"
#include "QLSDKCoreKit/core/QLSDKClientSetup.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk {

std::shared_ptr<const platform::Font> qlsdkRegularFontOfSize(double pointSize) {
    const QLSDKFont& font = QLSDKClientSetup::sharedInstance().font();
    return platform::current().fonts->fontWithName(font.regularFontName(), pointSize);
}

std::shared_ptr<const platform::Font> qlsdkBoldFontOfSize(double pointSize) {
    const QLSDKFont& font = QLSDKClientSetup::sharedInstance().font();
    return platform::current().fonts->fontWithName(font.boldFontName(), pointSize);
}

}  // namespace qlsdk
