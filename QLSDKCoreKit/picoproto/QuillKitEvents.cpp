#include "QLSDKCoreKit/picoproto/QuillKitEvents.h"

#include <optional>
#include <string>
#include <utility>

#include "QLSDKCoreKit/core/QLSDKClientSetup.h"
#include "QLSDKCoreKit/network/QLSDKNetworkRequest.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk {

namespace {

std::string kitVersion(const void* addressInKit) {
    const void* address = addressInKit != nullptr ? addressInKit : platform::libraryAddress();
    return platform::current()
        .bundles->bundleForAddress(address)
        ->textForInfoDictionaryKey(platform::kBundleVersionKey)
        .value_or("");
}

}  // namespace

MessageContext QuillKitEvents::kitEventBaseWithKitType(QLSDKKitType kitType, const void* addressInKit) {
    const platform::Platform& platform = platform::current();
    const std::string version = kitVersion(addressInKit);
    const double now = platform.clock->secondsSince1970();
    const std::string clientId = QLSDKClientSetup::sharedInstance().clientIDText().value_or("");
    const std::int64_t nowMillis = truncateToInt64(now * 1000.0);

    // On purpose: the fields stand in this order on the wire, not in that of their numbers.
    MessageContext base(picoproto_new("KitEventBase"));
    picoproto_write_varint_field(base.get(), 6, wireValue(kitType));
    writeUtf8Field(base, 7, version);
    writeUtf8Field(base, 1, clientId);
    writeUtf8Field(base, 3, QLSDKNetworkRequest::userAgent());
    writeUtf8Field(base, 2, platform.locale->identifier());
    picoproto_write_varint_field(base.get(), 8, static_cast<std::uint64_t>(nowMillis));
    return isComplete(base) ? std::move(base) : nullptr;
}

std::shared_ptr<EncodablePicoproto> QuillKitEvents::serverEventWithServerEventData(MessageContext payload) {
    const bool isWhole = payload == nullptr || isComplete(payload);
    MessageContext event(picoproto_new("ServerEvent"));
    writeMessageField(event, 100, std::move(payload));
    // The name of the system that the events' schema knows, whatever this one is called.
    picoproto_write_string_field(event.get(), 12, "iOS");
    writeUtf8Field(event, 13, platform::current().device->systemVersion());
    if (!isWhole || !isComplete(event)) event.reset();
    return std::make_shared<EncodablePicoproto>(std::move(event));
}

}  // namespace qlsdk
