#pragma once

#include <memory>

#include "QLSDKCoreKit/picoproto/EncodablePicoproto.h"
#include "QLSDKCoreKit/picoproto/QLSDKKitType.h"
#include "QLSDKCoreKit/platform/Export.h"

namespace qlsdk {

/// Builds the two envelopes of a feature kit's own analytics events. Stateless; any thread.
class QLSDK_EXPORT QuillKitEvents {
  public:
    QuillKitEvents() = delete;

    /// A new "KitEventBase" message, owned by the caller, who normally embeds it into an event with the free
    /// flag set. `addressInKit` is the address of anything in the kit's own code or data: its bundle gives
    /// the kit version. Null takes the library's own bundle. An absent client identifier or version is
    /// written as an empty text.
    [[nodiscard]] static picoproto_ctx_s* kitEventBaseWithKitType(QLSDKKitType kitType,
                                                                  const void* addressInKit = nullptr);

    /// A "ServerEvent" around the event's payload, which is consumed. A null payload is an empty message.
    [[nodiscard]] static std::shared_ptr<EncodablePicoproto> serverEventWithServerEventData(
        picoproto_ctx_s* payload);
};

}  // namespace qlsdk
