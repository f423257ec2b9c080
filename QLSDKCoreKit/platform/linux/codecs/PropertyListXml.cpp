#include "QLSDKCoreKit/platform/linux/codecs/PropertyListXml.h"

#include <string_view>

#include "QLSDKCoreKit/values/internal/Nesting.h"

namespace qlsdk::platform {

namespace {

constexpr std::size_t kMaximumBytes = std::size_t{16} << 20;
// The root element stands around the outermost value, and a scalar element inside the innermost container.
constexpr std::size_t kMaximumElements = kMaximumNesting + 2;

// Moves `text` behind the first `end`; false when there is none.
bool skipPast(std::string_view& text, std::string_view end) noexcept {
    const std::size_t place = text.find(end);
    if (place == std::string_view::npos) return false;
    text.remove_prefix(place + end.size());
    return true;
}

// Steps up to the end of one element tag, whose '<' is already gone, and counts the depth.
bool skipTag(std::string_view& text, std::size_t& depth) noexcept {
    const std::size_t end = text.find('>');
    if (end == std::string_view::npos) return false;
    const bool closes = end > 0 && text.front() == '/';
    const bool isEmpty = end > 0 && text[end - 1] == '/';
    if (closes && depth > 0) --depth;
    if (!closes && !isEmpty) ++depth;
    text.remove_prefix(end);
    return depth <= kMaximumElements;
}

// A document type may name its definition, but not declare anything itself.
bool skipDeclaration(std::string_view& text) noexcept {
    const std::size_t end = text.find('>');
    if (end == std::string_view::npos || text.substr(0, end).find('[') != std::string_view::npos)
        return false;
    text.remove_prefix(end);
    return true;
}

}  // namespace

bool isHarmlessXml(DataView bytes) noexcept {
    std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (text.size() > kMaximumBytes || text.find('\0') != std::string_view::npos) return false;
    std::size_t depth = 0;
    while (skipPast(text, "<")) {
        bool sound = false;
        if (text.starts_with("!--")) {
            sound = skipPast(text, "-->");
        } else if (text.starts_with("![CDATA[")) {
            sound = skipPast(text, "]]>");
        } else if (text.starts_with("?")) {
            sound = skipPast(text, "?>");
        } else if (text.starts_with("!")) {
            sound = skipDeclaration(text);
        } else {
            sound = skipTag(text, depth);
        }
        if (!sound) return false;
    }
    return true;
}

}  // namespace qlsdk::platform
