#include "QLSDKCoreKit/platform/Log.h"

#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/values/internal/Hex.h"

namespace qlsdk::platform {

std::string escapedForLog(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            escaped += "\\n";
        } else if (c == '\r') {
            escaped += "\\r";
        } else if (c == '\t') {
            escaped += "\\t";
        } else if (byte < 0x20 || byte == 0x7F) {
            escaped += "\\x";
            appendHex(escaped, byte, kLowerHex);
        } else {
            escaped += c;
        }
    }
    return escaped;
}

void logLine(std::string_view text) noexcept {
    try {
        current().log->write(escapedForLog(text));
    } catch (...) {
        // A line that cannot be built is lost, like one that cannot be written.
    }
}

}  // namespace qlsdk::platform
