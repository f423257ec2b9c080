#pragma once

#include <memory>
#include <optional>
#include <string>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/picoproto/EncodablePicoproto.h"
#include "QLSDKCoreKit/picoproto/QLSDKKitType.h"

namespace qlsdk {

/// One report that a feature kit is alive on this device. Immutable; any thread.
class QLSDK_EXPORT QLSDKHeartbeat {
  public:
    /// An absent version is sent as an empty text.
    QLSDKHeartbeat(QLSDKKitType kitType, std::optional<std::string> kitVersion);

    [[nodiscard]] QLSDKKitType kitType() const noexcept { return kitType_; }

    /// A new "Heartbeat" message. Reads the clock, the environment and the keychain each time it is called;
    /// an absent client identifier or installation identifier is written as an empty text, and what is no
    /// UTF-8 in a text as U+FFFD. Null when the message cannot be completed: a text is too long, the locale
    /// or the architecture cannot be told, or memory is short.
    [[nodiscard]] std::shared_ptr<EncodablePicoproto> encodeablePicoproto() const;

  private:
    /// A new "Timestamp" message.
    [[nodiscard]] static MessageContext _picoprotoTimestampWithTimestamp(double secondsSince1970);

    QLSDKKitType kitType_;
    std::optional<std::string> kitVersion_;
};

}  // namespace qlsdk
