#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "QLSDKCoreKit/events/EventWrapper.h"

namespace qlsdk {

// The decisions of an upload queue, as functions of their inputs alone.

/// What a publish run does with a record.
enum class Due { now, later };

/// A first attempt is always due; a retry once its time has passed. A retry at exactly its time still waits.
[[nodiscard]] Due dueOf(const EventWrapper& record, std::int64_t nowMillis) noexcept;

/// How an upload ended.
enum class UploadOutcome { done, failed };

/// Done without an error at status 200, and at 403: a refusal is final. All else has failed, 201 and 204 too.
/// The workbench judges with it, too.
[[nodiscard]] QLSDK_EXPORT UploadOutcome uploadOutcomeOf(bool hasError, std::int64_t statusCode) noexcept;

/// The number at the start of a header's value, after white space and a sign: 0 without one, saturated when
/// it does not fit.
[[nodiscard]] std::int64_t leadingInteger(std::string_view text) noexcept;

/// When a failed upload may be tried again: the server's delay from now, or 0 (at once) when it named none or
/// one that does not lie after 1970. Saturates. With `longestDelay` a longer delay counts as that one.
[[nodiscard]] std::int64_t retryTimeMillis(
    const std::string* retryAfter, std::int64_t nowMillis,
    std::optional<std::chrono::milliseconds> longestDelay = std::nullopt) noexcept;

/// What becomes of a record whose upload has failed.
enum class AfterFailure { kept, dropped };

/// Marks a first attempt as a retry for `retryTime`; a record whose retry is spent is dropped unchanged.
[[nodiscard]] AfterFailure applyFailure(EventWrapper& record, std::int64_t retryTime) noexcept;

}  // namespace qlsdk
