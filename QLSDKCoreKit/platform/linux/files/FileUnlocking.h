#pragma once

#include <cerrno>

#include <sys/file.h>

namespace qlsdk::platform {

/// Gives back, at the end of the block, the lock that an open file may have. Closing alone would leave it to
/// a child of fork() that came meanwhile and has a copy of the descriptor, until the child ends. Leaves
/// errno.
class FileUnlocking {
  public:
    explicit FileUnlocking(int descriptor) noexcept : descriptor_(descriptor) {}
    ~FileUnlocking() {
        const int error = errno;
        ::flock(descriptor_, LOCK_UN);
        errno = error;
    }
    FileUnlocking(const FileUnlocking&) = delete;
    FileUnlocking& operator=(const FileUnlocking&) = delete;

  private:
    const int descriptor_;
};

}  // namespace qlsdk::platform
