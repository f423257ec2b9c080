#pragma once

#include <string>

#include "QLSDKCoreKit/platform/Export.h"
#include "QLSDKCoreKit/platform/Value.h"

namespace qlsdk {

/// The names of the two fonts the feature kits write with. Immutable; any thread. Both are always set;
/// whether the system knows them shows only when a font is asked for (FontHelpers.h).
class QLSDK_EXPORT QLSDKFont {
  public:
    /// `fontConfig`: a dictionary with the font names under "regular" and "bold", or null. Without "regular"
    /// the defaults "AvenirNext-Medium" and "AvenirNext-DemiBold" are taken, whatever "bold" holds; without
    /// "bold" the regular name serves for both. A name that is no text is taken as its rendering.
    explicit QLSDKFont(const Value& fontConfig);

    [[nodiscard]] const std::string& regularFontName() const noexcept { return regularFontName_; }
    [[nodiscard]] const std::string& boldFontName() const noexcept { return boldFontName_; }

  private:
    std::string regularFontName_;
    std::string boldFontName_;
};

}  // namespace qlsdk
