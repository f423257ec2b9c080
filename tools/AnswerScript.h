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

/// The answers that the user ordered, given out in their order; 200 when they are used up. Any thread.
class AnswerScript {
  public:
    explicit AnswerScript(std::span<const std::string> texts);

    [[nodiscard]] Answer next();
    /// How many of the answers left are stalls.
    [[nodiscard]] std::size_t stallCount();

  private:
    std::mutex mutex_;
    std::deque<Answer> answers_;
};

}  // namespace quillkit
