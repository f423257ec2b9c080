#pragma once

#include <chrono>
#include <string>

#include "QLSDKCoreKit/platform/linux/internal/FileDescriptor.h"

namespace qlsdk::platform {

/// How long a store waits for another thread or process before it gives up.
inline constexpr std::chrono::milliseconds kStoreTimeout{2000};

/// Holds an exclusive lock among all processes and threads that lock the same file, which is created with
/// mode 0600 when it is missing and never removed. Waits up to `kStoreTimeout`; test the object to see
/// whether it holds. The system gives the lock back when its holder dies. On the stack.
class FileLock {
  public:
    explicit FileLock(const std::string& path) noexcept;

    [[nodiscard]] explicit operator bool() const noexcept { return static_cast<bool>(file_); }

  private:
    FileDescriptor file_;
};

}  // namespace qlsdk::platform
