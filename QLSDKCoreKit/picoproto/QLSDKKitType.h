#pragma once

#include <cstdint>

namespace qlsdk {

/// Names the feature kit that reports something. On the wire it is the integer; values outside the table are
/// legal there, but no heartbeat is ever sent for them.
enum QLSDKKitType : std::int32_t {
    QLSDKKitTypeNone = 0,
    QLSDKKitTypeAccess = 1,
    QLSDKKitTypeAvatar = 2,
    QLSDKKitTypeSharing = 3,
    QLSDKKitTypeFeed = 4,
};

/// How a kit type is written in its varint fields: the 32 bits taken as unsigned and zero-extended, so that a
/// negative value takes five bytes and not ten.
[[nodiscard]] constexpr std::uint64_t wireValue(QLSDKKitType kitType) noexcept {
    return static_cast<std::uint32_t>(kitType);
}

}  // namespace qlsdk
