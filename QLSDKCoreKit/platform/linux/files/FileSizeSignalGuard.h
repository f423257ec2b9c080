#pragma once

#include <signal.h>

#include "QLSDKCoreKit/platform/linux/threads/DetachedThread.h"

namespace qlsdk::platform {

/// A write past the process's file-size limit raises SIGXFSZ, which ends the process unless the host handles
/// it. While a guard stands, such a write on its thread only fails; the host's signal mask and handlers are
/// as before afterwards. On the stack, around calls that write.
class FileSizeSignalGuard {
  public:
    FileSizeSignalGuard() noexcept {
        // The library's own threads block every signal for good: one that waits there reaches nobody.
        if (!isDetachedThread()) block();
    }
    ~FileSizeSignalGuard() {
        if (active_) restore();
    }
    FileSizeSignalGuard(const FileSizeSignalGuard&) = delete;
    FileSizeSignalGuard& operator=(const FileSizeSignalGuard&) = delete;

  private:
    void block() noexcept;
    void restore() noexcept;

    sigset_t previousMask_;
    bool active_ = false;
};

}  // namespace qlsdk::platform
