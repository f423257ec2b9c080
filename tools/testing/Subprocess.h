#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace quillkit::testing {

/// How a program ended and what it printed.
struct Finished {
    /// -1 when a signal ended it.
    int exitStatus = -1;
    std::string output;
    std::string errors;
};

/// A program under way. Its standard error goes to a file of its own, its output to a pipe that is read line
/// by line. A program that is still there when this object ends is killed.
class Subprocess {
  public:
    /// The first word is the program, looked up in PATH.
    explicit Subprocess(const std::vector<std::string>& words);
    ~Subprocess();
    Subprocess(const Subprocess&) = delete;
    Subprocess& operator=(const Subprocess&) = delete;

    /// Blocks until the program has printed another whole line; absent at the end of its output.
    [[nodiscard]] std::optional<std::string> nextLine();
    void sendSignal(int signal) const;
    /// Reads the rest of the output and waits for the end.
    [[nodiscard]] Finished finish();

  private:
    bool readMore();

    pid_t process_ = -1;
    int output_ = -1;
    std::string errorFile_;
    std::string unread_;
};

/// Runs a program to its end.
[[nodiscard]] Finished runToEnd(const std::vector<std::string>& words);

}  // namespace quillkit::testing
