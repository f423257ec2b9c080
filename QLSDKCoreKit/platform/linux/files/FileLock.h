#pragma once

#include <chrono>
#include <string>

#include "QLSDKCoreKit/platform/linux/files/FileDescriptor.h"

namespace qlsdk::platform {

/// How long a store waits for other threads and processes before it gives up, all waits of a call together.
inline constexpr std::chrono::milliseconds kStoreTimeout{2000};

/// Holds an exclusive lock among all processes and threads that lock the same file, which is created with
/// mode 0600 when it is missing and never removed. The system gives the lock back when its holder dies. On
/// the stack.
class FileLock {
  public:
    enum class Outcome {
        held,
        /// Somebody else holds it.
        busy,
        /// The file system has no locks. Files that are replaced whole may be written nevertheless; two
        /// writers at once may then lose a change of each other's.
        unsupported,
        /// The lock file cannot be opened.
        failed,
    };

    /// Tries once, and then until `deadline`.
    FileLock(const std::string& path, std::chrono::steady_clock::time_point deadline) noexcept;
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    [[nodiscard]] Outcome outcome() const noexcept { return outcome_; }
    /// Why there is none, as the system numbers it.
    [[nodiscard]] int errorNumber() const noexcept { return errorNumber_; }

  private:
    void acquire(const std::string& path, std::chrono::steady_clock::time_point deadline) noexcept;
    [[nodiscard]] bool open(const std::string& path) noexcept;
    [[nodiscard]] bool isAt(const std::string& path) const noexcept;
    void end(Outcome outcome, int errorNumber) noexcept;

    FileDescriptor file_;
    Outcome outcome_ = Outcome::failed;
    int errorNumber_ = 0;
};

}  // namespace qlsdk::platform
