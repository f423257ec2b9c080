#pragma once

#include <memory>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/picoproto/EncodablePicoproto.h"
#include "QLSDKCoreKit/picoproto/QLSDKKitType.h"

namespace qlsdk {

/// Builds the two envelopes of a feature kit's own analytics events. Stateless; any thread. What is no UTF-8
/// in a text becomes U+FFFD. Running out of memory may throw `bad_alloc`; nothing leaks then, the payload
/// neither.
class QLSDK_EXPORT QuillKitEvents {
  public:
    QuillKitEvents() = delete;

    /// A new "KitEventBase" message, which the caller normally embeds into an event. `addressInKit` is the
    /// address of anything in the kit's own code or data: its bundle gives the kit version. Null takes the
    /// library's own bundle. An absent client identifier or version is written as an empty text. Null when a
    /// text is too long or memory short.
    [[nodiscard]] static MessageContext kitEventBaseWithKitType(QLSDKKitType kitType,
                                                                const void* addressInKit = nullptr);

    /// A "ServerEvent" around the event's payload, which is consumed. A null payload is an empty message.
    /// Without a context when a write into the payload was refused, the event would outgrow a message, or
    /// memory is short: such an object must not be pushed.
    [[nodiscard]] static std::shared_ptr<EncodablePicoproto> serverEventWithServerEventData(
        MessageContext payload);
};

}  // namespace qlsdk
