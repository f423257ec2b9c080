#pragma once

#include <string_view>

namespace qlsdk {

// Reports of conditions that do not hold. The caller tests the condition and goes on after the report.
// Any thread; nothing fails. The texts are data: percent signs in them mean nothing.

/// Reports that `condition`, given as its source text without outer parentheses, did not hold in the
/// operation `signature` ("-[Class selector]", "+[Class(Category) selector]") for `reason`. The report names
/// the host by its client identifier; while the client setup is still being made, by whichever thread, it
/// says "(null)" instead of waiting for it.
void reportFailedAssertion(std::string_view signature, std::string_view condition,
                           std::string_view reason) noexcept;

/// Reports that the required argument `parameterName` of the operation `signature` is missing.
void reportInvalidParameter(std::string_view signature, std::string_view parameterName) noexcept;

}  // namespace qlsdk
