#pragma once

#include <mutex>
#include <optional>
#include <string>

namespace quillkit {

/// The JSON that the configuration path answers with: the user's file, read at each request, or a text that
/// was put in its place. The file is never written. Any thread.
class ConfigSource {
  public:
    /// Longer files and texts count as unreadable.
    static constexpr std::size_t kCeiling = std::size_t{1} << 20;

    /// Without a file it is an empty object.
    explicit ConfigSource(std::optional<std::string> file) : file_(std::move(file)) {}

    /// What stands there now, JSON or not; absent when the file cannot be read.
    [[nodiscard]] std::optional<std::string> text();
    /// The body of the answer; absent when there is no text or it is no JSON.
    [[nodiscard]] std::optional<std::string> body();

    /// Puts a text in the file's place. False, and nothing changes, when it is no JSON or too long.
    [[nodiscard]] bool replace(const std::string& text);
    /// Back to the file.
    void restore();
    [[nodiscard]] bool isReplaced();

  private:
    const std::optional<std::string> file_;
    std::mutex mutex_;
    std::optional<std::string> replacement_;
};

}  // namespace quillkit
