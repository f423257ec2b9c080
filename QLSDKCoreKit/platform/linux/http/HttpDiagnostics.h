#pragma once

#include <string_view>

#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"

namespace qlsdk::platform {

/// Says that a transfer ended with `code`, one of curl's. `cause` is in fixed words; `detail` is curl's own
/// message, if any; `errorNumber` the system's number for a connection that failed, else 0.
void reportTransferFailure(int code, std::string_view cause, std::string_view detail, int errorNumber,
                           const HttpOptions& options) noexcept;

/// Says that `what` was refused by the system, with its error number if it gave one.
void reportScarcity(std::string_view what, int errorNumber) noexcept;

/// Says that the option "connectTo" cannot be used.
void reportUnusableConnectTo(std::string_view connectTo) noexcept;

}  // namespace qlsdk::platform
