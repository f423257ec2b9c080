#include "QLSDKCoreKit/platform/PropertyList.h"

#include "fuzz/Require.h"
#include "fuzz/Targets.h"

namespace qlsdk::fuzz {

void propertyList(DataView bytes) {
    const auto value = platform::parsePropertyList(bytes);
    const auto written = value ? platform::serializePropertyList(*value) : std::nullopt;
    if (!written) return;
    // Dates lose their fractions in XML, so only what has been through it once must stay as it is.
    const auto again = platform::parsePropertyList(*written);
    require(again.has_value());
    require(platform::serializePropertyList(*again) == written);
}

}  // namespace qlsdk::fuzz
