#include "QLSDKCoreKit/core/QLSDKClientSetup.h"

namespace qlsdk {

QLSDKFont::QLSDKFont(const Value& fontConfig) {
    const Value regular = fontConfig["regular"];
    const Value bold = fontConfig["bold"];
    if (regular.isNull()) {
        // On purpose: a bold name alone is ignored, so that the two fonts always belong together.
        regularFontName_ = "AvenirNext-Medium";
        boldFontName_ = "AvenirNext-DemiBold";
        return;
    }
    regularFontName_ = describe(regular);
    boldFontName_ = bold.isNull() ? regularFontName_ : describe(bold);
}

}  // namespace qlsdk
