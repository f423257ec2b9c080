#include "QLSDKCoreKit/platform/linux/http/HttpRequestCheck.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string_view>

namespace qlsdk::platform {

namespace {

constexpr std::string_view kLineBreakers("\r\n\0", 3);

bool isTokenCharacter(char c) noexcept {
    constexpr std::string_view kSymbols = "!#$%&'*+-.^_`|~";
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           kSymbols.find(c) != std::string_view::npos;
}

bool isToken(std::string_view text) noexcept {
    return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

bool breaksLine(std::string_view text) noexcept {
    return text.find_first_of(kLineBreakers) != std::string_view::npos;
}

bool isHttps(std::string_view url) noexcept {
    constexpr std::string_view kScheme = "https://";
    return url.size() > kScheme.size() &&
           std::equal(kScheme.begin(), kScheme.end(), url.begin(), [](char expected, char c) {
               return expected == (c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
           });
}

bool isPort(std::string_view text) noexcept {
    std::uint16_t port = 0;
    const char* end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, port);
    return error == std::errc() && stopped == end && port != 0;
}

bool isHostCharacter(char c) noexcept {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' ||
           c == '-' || c == '_';
}

// curl tells a proper address from letters and digits that only look like one.
bool isAddressCharacter(char c) noexcept {
    return isHostCharacter(c) || c == ':' || c == '%';
}

}  // namespace

std::optional<std::string> reasonToRefuse(const UrlRequest& request) {
    if (!isHttps(request.url)) return "not an https URL";
    if (breaksLine(request.url)) return "forbidden byte in the URL";
    if (!isToken(request.method)) return "forbidden byte in the method";
    for (const auto& [name, value] : request.headers) {
        if (!isToken(name)) return "forbidden byte in a header name";
        if (breaksLine(value)) return "forbidden byte in a header value";
    }
    return std::nullopt;
}

bool isHostAndPort(std::string_view text) noexcept {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos || !isPort(text.substr(colon + 1))) return false;
    std::string_view host = text.substr(0, colon);
    const bool isBracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (isBracketed) host = host.substr(1, host.size() - 2);
    return !host.empty() &&
           std::all_of(host.begin(), host.end(), isBracketed ? isAddressCharacter : isHostCharacter);
}

}  // namespace qlsdk::platform
