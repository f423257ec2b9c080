#include "QLSDKCoreKit/platform/linux/http/ResponseCollector.h"

#include <charconv>
#include <string>
#include <utility>

namespace qlsdk::platform {

namespace {

constexpr std::size_t kMostHeaderBytes = std::size_t{64} << 10;
// What it may cost to keep a connection alive past an answer that nobody reads.
constexpr std::size_t kMostDiscardedBytes = std::size_t{64} << 10;
constexpr std::chrono::seconds kLongestDiscard{2};

constexpr std::int64_t kFirstFinalStatus = 200;

std::string_view trimmed(std::string_view text) noexcept {
    constexpr std::string_view kBlank = " \t\r\n";
    const std::size_t first = text.find_first_not_of(kBlank);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

// "HTTP/1.1 200 OK": the number after the first space; 0 when there is none.
std::int64_t statusCode(std::string_view statusLine) noexcept {
    std::int64_t code = 0;
    const std::size_t space = statusLine.find(' ');
    if (space == std::string_view::npos) return code;
    std::from_chars(statusLine.data() + space + 1, statusLine.data() + statusLine.size(), code);
    return code;
}

}  // namespace

ResponseCollector::Next ResponseCollector::addHeaderLine(std::string_view line, TimePoint now) {
    headerBytes_ += line.size();
    if (headerBytes_ > kMostHeaderBytes) return Next::tooMuch;
    if (headComplete_) return Next::goOn;
    if (line.starts_with("HTTP/")) {
        beginResponse(line);
    } else if (!trimmed(line).empty()) {
        addField(line);
    } else if (response_.statusCode >= kFirstFinalStatus) {
        headComplete_ = true;
        headCompletedAt_ = now;
    }
    return Next::goOn;
}

void ResponseCollector::beginResponse(std::string_view statusLine) {
    response_ = {.statusCode = statusCode(statusLine), .headers = {}};
}

void ResponseCollector::addField(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) return;
    const std::string name = canonicalHeaderName(trimmed(line.substr(0, colon)));
    const std::string_view value = trimmed(line.substr(colon + 1));
    const std::string* before = response_.headers.find(name);
    response_.headers.set(name, before == nullptr ? std::string(value) : *before + ", " + std::string(value));
}

ResponseCollector::Next ResponseCollector::addBody(DataView bytes, TimePoint now) {
    if (ceiling_.bytes == 0) {
        discardedBytes_ += bytes.size();
        const std::optional<TimePoint> deadline = discardDeadline();
        return discardedBytes_ > kMostDiscardedBytes || (deadline && now >= *deadline) ? Next::enough
                                                                                       : Next::goOn;
    }
    if (bytes.size() > ceiling_.bytes - body_.size()) return Next::tooMuch;
    body_.insert(body_.end(), bytes.begin(), bytes.end());
    return Next::goOn;
}

std::optional<ResponseCollector::TimePoint> ResponseCollector::discardDeadline() const noexcept {
    if (ceiling_.bytes != 0 || !headComplete_) return std::nullopt;
    return headCompletedAt_ + kLongestDiscard;
}

UrlResult ResponseCollector::take() {
    return {.error = std::nullopt, .response = std::move(response_), .body = std::move(body_)};
}

}  // namespace qlsdk::platform
