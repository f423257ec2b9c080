#include "tools/inspect/LinkReader.h"

#include <algorithm>

#include "QLSDKCoreKit/core/Helpers.h"
#include "QLSDKCoreKit/platform/Json.h"

namespace quillkit {

namespace {

int digitOf(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string percentDecoded(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? digitOf(text[i + 1]) : -1;
        const int low = high >= 0 ? digitOf(text[i + 2]) : -1;
        if (low < 0) {
            decoded += text[i];
        } else {
            decoded += static_cast<char>(high * 16 + low);
            i += 2;
        }
    }
    return decoded;
}

void decode(LinkParameter& parameter) {
    const auto bytes = qlsdk::ql_dataWithBase64EncodedString(parameter.value);
    if (bytes.has_value()) parameter.decoded = qlsdk::platform::parseJson(*bytes);
    if (!parameter.decoded.has_value() || parameter.name != "metadata") return;
    const qlsdk::Value fingerprint = (*parameter.decoded)["fingerprint"];
    if (fingerprint.string() == nullptr) return;
    parameter.token = checkToken(*fingerprint.string(), qlsdk::currentTimeMillis());
}

LinkParameter readParameter(std::string_view text) {
    const std::size_t equals = text.find('=');
    LinkParameter parameter;
    parameter.name = percentDecoded(text.substr(0, equals));
    if (equals != std::string_view::npos) parameter.value = percentDecoded(text.substr(equals + 1));
    parameter.isEncoded = parameter.name == "metadata" || parameter.name == "payload";
    if (parameter.isEncoded) decode(parameter);
    return parameter;
}

}  // namespace

bool isLink(const std::string& text) {
    return text.starts_with("quillo://") || text.starts_with("quilloaccesskitv1://");
}

LinkParts readLink(const std::string& link) {
    const std::size_t question = link.find('?');
    LinkParts parts{.base = link.substr(0, question), .parameters = {}};
    if (question == std::string::npos) return parts;
    std::string_view rest = std::string_view(link).substr(question + 1);
    rest = rest.substr(0, rest.find('#'));
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('&'), rest.size());
        parts.parameters.push_back(readParameter(rest.substr(0, end)));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return parts;
}

}  // namespace quillkit
