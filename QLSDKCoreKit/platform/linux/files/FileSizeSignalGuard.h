#pragma once

#include <signal.h>

namespace qlsdk::platform {

/// A write past the process's file-size limit raises SIGXFSZ, which ends the process unless the host handles
/// it. While a guard stands, such a write on its thread only fails; the host's signal mask and handlers are
/// as before afterwards. On the stack, around calls that write.
class FileSizeSignalGuard {
  public:
    FileSizeSignalGuard() noexcept;
    ~FileSizeSignalGuard();
    FileSizeSignalGuard(const FileSizeSignalGuard&) = delete;
    FileSizeSignalGuard& operator=(const FileSizeSignalGuard&) = delete;

  private:
    sigset_t previousMask_;
    bool active_ = false;
};

}  // namespace qlsdk::platform
