#include <string>

#include "QLSDKCoreKit/core/Helpers.h"
#include "QLSDKCoreKit/core/internal/PercentEncoding.h"

namespace qlsdk {

namespace {

std::string queryEncoded(std::string_view text) {
    return percentEncoded(text, "!$'()*+,-./:;?@_~");
}

std::string queryFrom(const Dictionary& queries) {
    std::string query;
    for (const auto& [name, value] : queries) {
        if (!query.empty()) query += '&';
        query += queryEncoded(name) + "=" + queryEncoded(describe(value));
    }
    return query;
}

}  // namespace

std::optional<platform::Url> buildWithBaseUrlString(std::string_view base,
                                                    const std::optional<Dictionary>& queries) {
    const std::optional<platform::Url> url = platform::Url::parse(base);
    if (!url) return std::nullopt;
    // On purpose: no queries still make a query, an empty one, which shows as a "?" at the end.
    return url->withQuery(queries ? queryFrom(*queries) : std::string());
}

}  // namespace qlsdk
