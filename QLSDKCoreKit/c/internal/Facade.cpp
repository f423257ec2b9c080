#include "QLSDKCoreKit/c/internal/Facade.h"

#include <cstring>

#include "QLSDKCoreKit/c/QLSDK.h"

namespace qlsdk {

std::shared_ptr<OwedAnswer> owedTo(OwedAnswer::Callback callback, void* context) noexcept {
    try {
        return std::make_shared<OwedAnswer>(callback, context);
    } catch (...) {
        if (callback != nullptr) callback(false, context);
        return nullptr;
    }
}

std::optional<std::string> textOrAbsent(const char* text) {
    return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

std::size_t giveText(const std::optional<std::string>& text, char* buffer, std::size_t capacity) noexcept {
    if (buffer != nullptr && capacity > 0) {
        *buffer = '\0';
        if (text && text->size() < capacity) std::memcpy(buffer, text->c_str(), text->size() + 1);
    }
    return text ? text->size() : QLSDK_NO_TEXT;
}

}  // namespace qlsdk
