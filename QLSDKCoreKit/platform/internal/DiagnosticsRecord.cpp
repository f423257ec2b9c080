#include "QLSDKCoreKit/platform/internal/DiagnosticsRecord.h"

#include <algorithm>
#include <new>

namespace qlsdk::platform {

namespace {

constexpr std::size_t kLongestCause = 160;
constexpr std::size_t kLongestPath = 1'024;
constexpr std::size_t kLongestDetail = 512;
constexpr std::string_view kFurther = "further failures of this kind";

constinit DiagnosticsRecord theRecord;

/// The beginning of `text`, not ending within a character of UTF-8.
std::string_view cut(std::string_view text, std::size_t longest) noexcept {
    if (text.size() <= longest) return text;
    std::size_t end = longest;
    while (end > longest - 4 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return text.substr(0, end);
}

}  // namespace

DiagnosticsRecord& DiagnosticsRecord::shared() noexcept {
    return theRecord;
}

bool DiagnosticsRecord::isSame(const Entry& entry, const DiagnosticReport& report) noexcept {
    return entry.kind == report.kind && entry.errorNumber == report.errorNumber &&
           entry.path == report.path && entry.cause == report.cause;
}

/// The entry and its texts in one block. Null without memory.
DiagnosticsRecord::Entry* DiagnosticsRecord::make(const DiagnosticReport& report, Entry* older) noexcept {
    const std::size_t bytes = report.cause.size() + report.path.size() + report.detail.size();
    void* block = nullptr;
    try {
        block = ::operator new(sizeof(Entry) + bytes);
    } catch (...) {
        return nullptr;
    }
    char* end = static_cast<char*>(block) + sizeof(Entry);
    const auto keep = [&end](std::string_view text) {
        const char* begin = end;
        end = std::copy(text.begin(), text.end(), end);
        return std::string_view(begin, text.size());
    };
    return new (block) Entry{.kind = report.kind,
                             .errorNumber = report.errorNumber,
                             .cause = keep(report.cause),
                             .path = keep(report.path),
                             .detail = keep(report.detail),
                             .position = older->position + 1,
                             .older = older};
}

DiagnosticsRecord::Entry* DiagnosticsRecord::find(Entry* newest, const DiagnosticReport& report) noexcept {
    for (Entry* entry = newest; entry != nullptr; entry = entry->older) {
        if (isSame(*entry, report)) return entry;
    }
    return nullptr;
}

bool DiagnosticsRecord::hasRoom(const Entry* newest, DiagnosticKind kind) noexcept {
    // The last one is no report's.
    std::size_t ofKind = 0;
    for (const Entry* entry = newest; entry->older != nullptr; entry = entry->older)
        ofKind += entry->kind == kind;
    return ofKind < kMostOfOneKind;
}

bool DiagnosticsRecord::add(DiagnosticReport report) noexcept {
    report.cause = cut(report.cause, kLongestCause);
    report.path = cut(report.path, kLongestPath);
    report.detail = cut(report.detail, kLongestDetail);
    for (;;) {
        Entry* newest = newest_.load();
        if (Entry* known = find(newest, report)) return known->times.fetch_add(1) == 0;
        if (report.cause != kFurther && !hasRoom(newest, report.kind)) {
            report = {.kind = report.kind, .cause = kFurther};
            continue;
        }
        Entry* made = newest->position < kMost ? make(report, newest) : nullptr;
        if (made == nullptr) return lost_.times.fetch_add(1) == 0;
        if (newest_.compare_exchange_strong(newest, made)) return true;
        ::operator delete(made);
    }
}

DiagnosticsRecord::Entry* DiagnosticsRecord::oldestNew() const noexcept {
    Entry* found = nullptr;
    for (Entry* entry = newest_; entry != nullptr; entry = entry->older) {
        if (!entry->isTold && entry->times > 0) found = entry;
    }
    return found;
}

bool DiagnosticsRecord::hasNew() const noexcept {
    return oldestNew() != nullptr;
}

void DiagnosticsRecord::tellNew(const std::function<void(const Diagnostic&)>& tell) noexcept {
    try {
        while (Entry* entry = oldestNew()) {
            const Diagnostic diagnostic = diagnosticOf(*entry);
            entry->isTold = true;
            tell(diagnostic);
        }
    } catch (...) {
        // No memory for a copy.
    }
}

std::vector<Diagnostic> DiagnosticsRecord::all() const {
    std::vector<Diagnostic> found;
    for (const Entry* entry = newest_; entry != nullptr; entry = entry->older) {
        if (entry->times > 0) found.push_back(diagnosticOf(*entry));
    }
    std::reverse(found.begin(), found.end());
    return found;
}

Diagnostic DiagnosticsRecord::diagnosticOf(const Entry& entry) {
    return {.kind = entry.kind,
            .cause = std::string(entry.cause),
            .errorNumber = entry.errorNumber,
            .path = std::string(entry.path),
            .detail = std::string(entry.detail),
            .times = entry.times};
}

}  // namespace qlsdk::platform
