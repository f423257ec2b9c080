#include "QLSDKCoreKit/events/QLSDKHeartbeat.h"

#include <utility>

#include "QLSDKCoreKit/core/QLAppEnvironment.h"
#include "QLSDKCoreKit/core/QLSDKClientSetup.h"
#include "QLSDKCoreKit/picoproto/MessageContext.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/storage/QLSDKInstallation.h"

namespace qlsdk {

namespace {

picoproto_ctx_s* deviceEnvironmentInfo() {
    platform::Device& device = *platform::current().device;
    picoproto_ctx_s* info = picoproto_new("DeviceEnvironmentInfo");
    picoproto_write_varint_field(info, 1, 1);
    picoproto_write_string_field(info, 2, device.systemVersion().c_str());
    picoproto_write_string_field(info, 3, device.model().c_str());
    picoproto_write_string_field(info, 4, QLArchitecture());
    picoproto_write_string_field(info, 5, QLLocale());
    picoproto_write_varint_field(info, 6, QLIsRunningWithDebugger() ? 1 : 0);
    picoproto_write_varint_field(info, 7, QLIsRunningTests() ? 1 : 0);
    picoproto_write_varint_field(info, 8, 1);
    picoproto_write_varint_field(info, 9, QLIsAppStoreReceiptSandbox() ? 1 : 0);
    return info;
}

}  // namespace

QLSDKHeartbeat::QLSDKHeartbeat(QLSDKKitType kitType, std::optional<std::string> kitVersion)
    : kitType_(kitType), kitVersion_(std::move(kitVersion)) {}

std::shared_ptr<EncodablePicoproto> QLSDKHeartbeat::encodeablePicoproto() const {
    MessageContext timestamp(_picoprotoTimestampWithTimestamp(platform::current().clock->secondsSince1970()));
    MessageContext environment(deviceEnvironmentInfo());
    const std::string clientId = QLSDKClientSetup::sharedInstance().clientIDText().value_or("");
    const std::string installationId = QLSDKInstallation().installationId().value_or("");

    MessageContext heartbeat(picoproto_new("Heartbeat"));
    picoproto_write_string_field(heartbeat.get(), 1, clientId.c_str());
    picoproto_write_string_field(heartbeat.get(), 2, installationId.c_str());
    picoproto_write_varint_field(heartbeat.get(), 3, wireValue(kitType_));
    picoproto_write_string_field(heartbeat.get(), 4, kitVersion_.value_or("").c_str());
    picoproto_write_embedded_message_field(heartbeat.get(), 5, environment.release(), 1);
    picoproto_write_embedded_message_field(heartbeat.get(), 6, timestamp.release(), 1);
    return std::make_shared<EncodablePicoproto>(heartbeat.release());
}

picoproto_ctx_s* QLSDKHeartbeat::_picoprotoTimestampWithTimestamp(double secondsSince1970) {
    return timestampMessage(secondsSince1970).release();
}

}  // namespace qlsdk
