#pragma once

#include <deque>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quillkit {

/// What the collector does with one request.
struct Answer {
    enum class Kind {
        /// A status and, perhaps, header fields.
        status,
        /// The connection is closed without an answer.
        drop,
        /// No answer comes until the collector ends.
        stall,
    };
    Kind kind = Kind::status;
    int status = 200;
    std::vector<std::pair<std::string, std::string>> headers;
};

/// Reads "STATUS", "STATUS:NAME=VALUE", "drop" or "stall". Throws `UsageError` for anything else.
[[nodiscard]] Answer parseAnswer(std::string_view text);

/// The text that `parseAnswer` reads this answer from.
[[nodiscard]] std::string textOf(const Answer& answer);

/// The answers that the user ordered, given out in their order; 200 when they are used up. Any thread.
class AnswerScript {
  public:
    /// Throws `UsageError` for a text that is no answer.
    explicit AnswerScript(std::span<const std::string> texts);

    [[nodiscard]] Answer next();
    /// Orders more behind those that are left. Throws `UsageError` for a text that is no answer; then none is
    /// added.
    void add(std::span<const std::string> texts);
    /// Forgets those that are left.
    void clear();
    /// Those that are left, as texts.
    [[nodiscard]] std::vector<std::string> pending();
    /// How many of the answers left are stalls.
    [[nodiscard]] std::size_t stallCount();

  private:
    std::mutex mutex_;
    std::deque<Answer> answers_;
};

}  // namespace quillkit
