#include "QLSDKCoreKit/events/QLSDKHeartbeat.h"

#include <string_view>
#include <utility>

#include "QLSDKCoreKit/core/QLAppEnvironment.h"
#include "QLSDKCoreKit/core/QLSDKClientSetup.h"
#include "QLSDKCoreKit/picoproto/MessageContext.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/storage/QLSDKInstallation.h"

namespace qlsdk {

namespace {

/// Null when a text of it cannot be told.
MessageContext deviceEnvironmentInfo() {
    platform::Device& device = *platform::current().device;
    const char* const architecture = QLArchitecture();
    const char* const locale = QLLocale();
    if (architecture == nullptr || locale == nullptr) return nullptr;
    MessageContext info(picoproto_new("DeviceEnvironmentInfo"));
    picoproto_write_varint_field(info.get(), 1, 1);
    writeUtf8Field(info, 2, device.systemVersion());
    writeUtf8Field(info, 3, device.model());
    writeUtf8Field(info, 4, architecture);
    writeUtf8Field(info, 5, locale);
    picoproto_write_varint_field(info.get(), 6, QLIsRunningWithDebugger() ? 1 : 0);
    picoproto_write_varint_field(info.get(), 7, QLIsRunningTests() ? 1 : 0);
    picoproto_write_varint_field(info.get(), 8, 1);
    picoproto_write_varint_field(info.get(), 9, QLIsAppStoreReceiptSandbox() ? 1 : 0);
    return info;
}

}  // namespace

QLSDKHeartbeat::QLSDKHeartbeat(QLSDKKitType kitType, std::optional<std::string> kitVersion)
    : kitType_(kitType), kitVersion_(std::move(kitVersion)) {}

std::shared_ptr<EncodablePicoproto> QLSDKHeartbeat::encodeablePicoproto() const {
    MessageContext timestamp =
        _picoprotoTimestampWithTimestamp(platform::current().clock->secondsSince1970());
    MessageContext environment = deviceEnvironmentInfo();
    if (!isComplete(timestamp) || !isComplete(environment)) return nullptr;
    const std::string clientId = QLSDKClientSetup::sharedInstance().clientIDText().value_or("");
    const std::string installationId = QLSDKInstallation().installationId().value_or("");

    MessageContext heartbeat(picoproto_new("Heartbeat"));
    writeUtf8Field(heartbeat, 1, clientId);
    writeUtf8Field(heartbeat, 2, installationId);
    picoproto_write_varint_field(heartbeat.get(), 3, wireValue(kitType_));
    writeUtf8Field(heartbeat, 4, kitVersion_ ? std::string_view(*kitVersion_) : std::string_view());
    writeMessageField(heartbeat, 5, std::move(environment));
    writeMessageField(heartbeat, 6, std::move(timestamp));
    if (!isComplete(heartbeat)) return nullptr;
    return std::make_shared<EncodablePicoproto>(std::move(heartbeat));
}

MessageContext QLSDKHeartbeat::_picoprotoTimestampWithTimestamp(double secondsSince1970) {
    return timestampMessage(secondsSince1970);
}

}  // namespace qlsdk
