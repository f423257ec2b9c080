#include "LinkOutline.h"

#include <algorithm>
#include <optional>

#include "ArchiveTree.h"
#include "TokenCheck.h"

#include "QLSDKCoreKit/core/DataHelpers.h"
#include "QLSDKCoreKit/core/DateHelpers.h"
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

void addToken(Outline& outline, const std::string& token) {
    const TokenReport report = checkToken(token, qlsdk::currentTimeMillis());
    outline.line("token: " + std::string(wordsFor(report.state)));
    if (!report.opened.has_value()) return;
    const Outline::Indent indent(outline);
    outline.line("bundle identifier: " + report.opened->bundleIdentifier);
    outline.line("created: " + std::to_string(report.opened->createdMillis) + " ms since 1970, " +
                 std::to_string(report.ageMillis) + " ms ago");
}

void addEncoded(Outline& outline, const std::string& name, const std::string& value) {
    const auto bytes = qlsdk::ql_dataWithBase64EncodedString(value);
    const auto json = bytes.has_value() ? qlsdk::platform::parseJson(*bytes) : std::nullopt;
    if (!json.has_value()) {
        outline.line(name + ": \"" + value + "\", which is no base64 of JSON");
        return;
    }
    addValue(outline, name, *json);
    const qlsdk::Value fingerprint = (*json)["fingerprint"];
    if (name == "metadata" && fingerprint.string() != nullptr) addToken(outline, *fingerprint.string());
}

void addParameter(Outline& outline, std::string_view parameter) {
    const std::size_t equals = parameter.find('=');
    const std::string name = percentDecoded(parameter.substr(0, equals));
    const std::string value =
        equals == std::string_view::npos ? "" : percentDecoded(parameter.substr(equals + 1));
    if (name == "metadata" || name == "payload") {
        addEncoded(outline, name, value);
    } else {
        outline.line(name + ": \"" + value + "\"");
    }
}

}  // namespace

bool isLink(const std::string& text) {
    return text.starts_with("quillo://") || text.starts_with("quilloaccesskitv1://");
}

void addLink(Outline& outline, const std::string& link) {
    const std::size_t question = link.find('?');
    outline.line("link: " + link.substr(0, question));
    if (question == std::string::npos) return;
    const Outline::Indent indent(outline);
    std::string_view rest = std::string_view(link).substr(question + 1);
    rest = rest.substr(0, rest.find('#'));
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('&'), rest.size());
        addParameter(outline, rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
}

}  // namespace quillkit
