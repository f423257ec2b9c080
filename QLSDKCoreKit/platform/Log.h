#pragma once

#include <string>
#include <string_view>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

/// Port: the system log.
///
/// Any thread. `line` is one event, already free of control characters (see `logLine`); it is data and never
/// a format. A line that cannot be written is lost.
class QLSDK_EXPORT Log {
  public:
    virtual ~Log() = default;
    virtual void write(std::string_view line) noexcept = 0;
};

/// `text` with every control character written as an escape (a line feed becomes "\n", byte 1 "\x01"), so
/// that one event stays one line and a hostile value cannot forge another.
[[nodiscard]] QLSDK_EXPORT std::string escapedForLog(std::string_view text);

/// Writes one escaped line to the current platform's log. Any thread; never throws.
QLSDK_EXPORT void logLine(std::string_view text) noexcept;

}  // namespace qlsdk::platform
