#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>

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

/// A callback of C that has to hear one answer: a failure, when everyone who could give another has let go of
/// this, as a task does that there was no memory for.
class OwedAnswer {
  public:
    using Callback = void (*)(bool success, void* context);

    OwedAnswer(Callback callback, void* context) noexcept : callback_(callback), context_(context) {}
    ~OwedAnswer() { give(false); }
    OwedAnswer(const OwedAnswer&) = delete;
    OwedAnswer& operator=(const OwedAnswer&) = delete;

    void give(bool success) noexcept {
        if (const Callback callback = std::exchange(callback_, nullptr)) callback(success, context_);
    }

  private:
    Callback callback_;
    void* const context_;
};

/// Null when there was no memory for it, and the callback has heard of that.
[[nodiscard]] std::shared_ptr<OwedAnswer> owedTo(OwedAnswer::Callback callback, void* context) noexcept;

/// An absent text for NULL.
[[nodiscard]] std::optional<std::string> textOrAbsent(const char* text);

/// Answers a text as the top of QLSDK.h says.
[[nodiscard]] std::size_t giveText(const std::optional<std::string>& text, char* buffer,
                                   std::size_t capacity) noexcept;

}  // namespace qlsdk
