#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace qlsdk {

/// Runs one C function's work. Nothing may be thrown into C; what is thrown (memory ran out) answers
/// `otherwise`.
template <typename Answer, typename Work>
Answer answerOr(Answer otherwise, const Work& work) noexcept {
    try {
        return work();
    } catch (...) {
        return otherwise;
    }
}

template <typename Work>
void runSwallowing(const Work& work) noexcept {
    try {
        work();
    } catch (...) {
        // A C function without a result cannot say that memory ran out; its work is best effort.
    }
}

/// An absent text for NULL.
[[nodiscard]] std::optional<std::string> textOrAbsent(const char* text);

/// Answers a text as QLSDKText.h says.
[[nodiscard]] std::size_t giveText(const std::optional<std::string>& text, char* buffer,
                                   std::size_t capacity) noexcept;

}  // namespace qlsdk
