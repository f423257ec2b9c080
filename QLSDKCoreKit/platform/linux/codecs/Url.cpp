#include "QLSDKCoreKit/platform/Url.h"

#include <algorithm>

#include <uriparser/Uri.h>

namespace qlsdk::platform {

namespace {

bool isValid(std::string_view text) noexcept {
    UriUriA uri;
    const char* errorPlace = nullptr;
    if (uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), &errorPlace) != URI_SUCCESS) {
        return false;
    }
    uriFreeUriMembersA(&uri);
    return true;
}

}  // namespace

std::optional<Url> Url::parse(std::string_view text) noexcept {
    if (text.empty() || !isValid(text)) return std::nullopt;
    try {
        return Url(std::string(text));
    } catch (...) {
        return std::nullopt;
    }
}

Url Url::withQuery(std::string_view query) const {
    // In a valid URL the first "#" starts the fragment, and the first "?" before it the query.
    const std::size_t fragment = std::min(text_.find('#'), text_.size());
    const std::size_t question = std::min(text_.find('?'), fragment);
    std::string text = text_.substr(0, question);
    text += '?';
    text += query;
    text.append(text_, fragment);
    return Url(std::move(text));
}

}  // namespace qlsdk::platform
