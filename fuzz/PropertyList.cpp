#include "QLSDKCoreKit/platform/PropertyList.h"

#include "fuzz/Require.h"
#include "fuzz/Targets.h"

namespace qlsdk::fuzz {

void propertyList(DataView bytes) {
    const auto value = platform::parsePropertyList(bytes);
    const auto written = value ? platform::serializePropertyList(*value) : std::nullopt;
    if (!written) return;
    const auto again = platform::parsePropertyList(*written);
    require(again.has_value());
    require(platform::serializePropertyList(*again) == written);
}

}  // namespace qlsdk::fuzz
