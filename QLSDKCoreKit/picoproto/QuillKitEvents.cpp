#include "QLSDKCoreKit/picoproto/QuillKitEvents.h"

#include <optional>
#include <string>

#include "QLSDKCoreKit/core/QLSDKClientSetup.h"
#include "QLSDKCoreKit/network/QLSDKNetworkRequest.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk {

namespace {

/// An address inside the library, for finding the library's own bundle.
const char kAddressInLibrary = 0;

std::string kitVersion(const void* addressInKit) {
    const void* address = addressInKit != nullptr ? addressInKit : &kAddressInLibrary;
    return platform::current()
        .bundles->bundleForAddress(address)
        ->textForInfoDictionaryKey(platform::kBundleVersionKey)
        .value_or("");
}

}  // namespace

picoproto_ctx_s* QuillKitEvents::kitEventBaseWithKitType(QLSDKKitType kitType, const void* addressInKit) {
    const platform::Platform& platform = platform::current();
    const std::string version = kitVersion(addressInKit);
    const double now = platform.clock->secondsSince1970();
    const std::string clientId = QLSDKClientSetup::sharedInstance().clientIDText().value_or("");
    const std::int64_t nowMillis = truncateToInt64(now * 1000.0);

    // On purpose: the fields stand in this order on the wire, not in that of their numbers.
    picoproto_ctx_s* base = picoproto_new("KitEventBase");
    picoproto_write_varint_field(base, 6, wireValue(kitType));
    picoproto_write_string_field(base, 7, version.c_str());
    picoproto_write_string_field(base, 1, clientId.c_str());
    picoproto_write_string_field(base, 3, QLSDKNetworkRequest::userAgent().c_str());
    picoproto_write_string_field(base, 2, platform.locale->identifier().c_str());
    picoproto_write_varint_field(base, 8, static_cast<std::uint64_t>(nowMillis));
    return base;
}

std::shared_ptr<EncodablePicoproto> QuillKitEvents::serverEventWithServerEventData(picoproto_ctx_s* payload) {
    picoproto_ctx_s* event = picoproto_new("ServerEvent");
    picoproto_write_embedded_message_field(event, 100, payload, 1);
    // The name of the system that the events' schema knows, whatever this one is called.
    picoproto_write_string_field(event, 12, "iOS");
    picoproto_write_string_field(event, 13, platform::current().device->systemVersion().c_str());
    return std::make_shared<EncodablePicoproto>(event);
}

}  // namespace qlsdk
