#include "QLSDKCoreKit/events/internal/RetryPolicy.h"

#include <algorithm>
#include <charconv>

namespace qlsdk {

namespace {

bool isWhiteSpace(char c) noexcept {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

}  // namespace

Due dueOf(const EventWrapper& record, std::int64_t nowMillis) noexcept {
    return record.isRetry() && record.nextRetryTimeMillis() >= nowMillis ? Due::later : Due::now;
}

UploadOutcome uploadOutcomeOf(bool hasError, std::int64_t statusCode) noexcept {
    return !hasError && (statusCode == 200 || statusCode == 403) ? UploadOutcome::done
                                                                 : UploadOutcome::failed;
}

std::int64_t leadingInteger(std::string_view text) noexcept {
    while (!text.empty() && isWhiteSpace(text.front())) text.remove_prefix(1);
    const bool negative = text.starts_with('-');
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) return 0;
    }
    std::int64_t number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec == std::errc::result_out_of_range) return negative ? INT64_MIN : INT64_MAX;
    return result.ec == std::errc() ? number : 0;
}

std::int64_t retryTimeMillis(const std::string* retryAfter, std::int64_t nowMillis,
                             std::optional<std::chrono::milliseconds> longestDelay) noexcept {
    if (retryAfter == nullptr) return 0;
    std::int64_t delay = leadingInteger(*retryAfter);
    if (longestDelay) delay = std::min<std::int64_t>(delay, std::max<std::int64_t>(longestDelay->count(), 0));
    std::int64_t time = 0;
    if (__builtin_add_overflow(nowMillis, delay, &time)) {
        time = nowMillis > 0 ? INT64_MAX : INT64_MIN;
    }
    return time > 0 ? time : 0;
}

AfterFailure applyFailure(EventWrapper& record, std::int64_t retryTime) noexcept {
    if (record.numRetried() != 0) return AfterFailure::dropped;
    record.setNextRetryTimeMillis(retryTime);
    record.setIsRetry(true);
    return AfterFailure::kept;
}

}  // namespace qlsdk
