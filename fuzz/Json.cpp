#include "QLSDKCoreKit/platform/Json.h"

#include "fuzz/Require.h"
#include "fuzz/Targets.h"

#include "QLSDKCoreKit/values/Value.h"
#include "QLSDKCoreKit/values/internal/JsonWriter.h"

namespace qlsdk::fuzz {

void json(DataView bytes) {
    const auto value = platform::parseJson(bytes);
    if (!value) return;
    const auto text = platform::serializeJson(*value);
    require(text.has_value());
    require(platform::parseJson(bytesOf(*text), {.bytes = text->size()}) == value);
}

}  // namespace qlsdk::fuzz
