#include "QLSDKCoreKit/picoproto/MessageContext.h"

#include <algorithm>

#include "QLSDKCoreKit/values/Value.h"

namespace qlsdk {

MessageContext timestampMessage(double secondsSince1970) {
    const std::int64_t seconds = truncateToInt64(secondsSince1970);
    const double rest = secondsSince1970 - static_cast<double>(seconds);
    const std::int64_t nanos =
        std::clamp<std::int64_t>(truncateToInt64(rest * 1000000000.0), INT32_MIN, INT32_MAX);
    MessageContext message(picoproto_new("Timestamp"));
    picoproto_write_varint_field(message.get(), 1, static_cast<std::uint64_t>(seconds));
    picoproto_write_varint_field(message.get(), 2, static_cast<std::uint64_t>(nanos));
    return message;
}

}  // namespace qlsdk
