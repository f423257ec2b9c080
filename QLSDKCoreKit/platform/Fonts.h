#pragma once

#include <memory>
#include <string>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

/// One font of the system at one size. Immutable.
struct Font {
    /// The name it was asked for by.
    std::string name;
    /// In points.
    double pointSize = 0;
    /// Where the system keeps it; empty when it does not say.
    std::string file;
};

/// Port: the system's fonts. Any thread.
class QLSDK_EXPORT Fonts {
  public:
    virtual ~Fonts() = default;

    /// The font known under exactly that name (PostScript or full name); null when the system does not know
    /// it. Never another font in its place.
    [[nodiscard]] virtual std::shared_ptr<const Font> fontWithName(const std::string& name,
                                                                   double pointSize) = 0;
};

}  // namespace qlsdk::platform
