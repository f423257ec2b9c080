#include "tools/inspect/Outline.h"

#include <algorithm>

#include "QLSDKCoreKit/platform/Log.h"

namespace quillkit {

namespace {

// Deeper lines stand below each other: the depth of a property list may be more than a screen is wide.
constexpr std::size_t kDepthShown = 40;

}  // namespace

void Outline::line(std::string_view text) {
    if (isFull()) return;
    ++count_;
    const bool cut = text.size() > kWidthCeiling;
    text_.append(2 * std::min(depth_, kDepthShown), ' ');
    text_ += qlsdk::platform::escapedForLog(text.substr(0, kWidthCeiling));
    text_ += cut ? "...\n" : "\n";
}

void Outline::lines(std::string_view text) {
    while (!text.empty() && !isFull()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        line(text.substr(0, end));
        text.remove_prefix(std::min(text.size(), end + 1));
    }
}

std::string Outline::text() const {
    if (!isFull()) return text_;
    return text_ + "(cut after " + std::to_string(kLineCeiling) + " lines)\n";
}

}  // namespace quillkit
