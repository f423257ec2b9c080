#include "QLSDKCoreKit/platform/UrlSession.h"

#include <algorithm>
#include <limits>

namespace qlsdk::platform {

namespace {

// ASCII only: header names are, and the C library's functions would ask the locale.
char lower(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
char upper(char c) noexcept {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool sameName(std::string_view left, std::string_view right) noexcept {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return lower(a) == lower(b); });
}

}  // namespace

void HeaderFields::set(std::string_view name, std::string_view value) {
    for (Field& field : fields_) {
        if (!sameName(field.first, name)) continue;
        field = {std::string(name), std::string(value)};
        return;
    }
    fields_.emplace_back(name, value);
}

void HeaderFields::erase(std::string_view name) {
    std::erase_if(fields_, [name](const Field& field) { return sameName(field.first, name); });
}

const std::string* HeaderFields::find(std::string_view name) const noexcept {
    for (const Field& field : fields_) {
        if (sameName(field.first, name)) return &field.second;
    }
    return nullptr;
}

void UrlSession::refuseTasks(Task done) {
    if (done) done();
}

std::size_t UrlSession::mostUploadsOfAQueue() const noexcept {
    return std::numeric_limits<std::size_t>::max();
}

std::string canonicalHeaderName(std::string_view name) {
    std::string canonical;
    canonical.reserve(name.size());
    bool startsWord = true;
    for (const char c : name) {
        canonical += startsWord ? upper(c) : lower(c);
        startsWord = c == '-';
    }
    return canonical;
}

}  // namespace qlsdk::platform
