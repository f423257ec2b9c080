#pragma once

#include <utility>

#include <unistd.h>

namespace qlsdk::platform {

/// Owns one open file descriptor; -1 is none.
class FileDescriptor {
  public:
    explicit FileDescriptor(int number = -1) noexcept : number_(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~FileDescriptor() {
        if (number_ >= 0) ::close(number_);
    }

    [[nodiscard]] int get() const noexcept { return number_; }
    /// False when the system reports a late write error.
    [[nodiscard]] bool close() noexcept { return ::close(std::exchange(number_, -1)) == 0; }
    /// Lets go of it without closing it.
    int release() noexcept { return std::exchange(number_, -1); }
    explicit operator bool() const noexcept { return number_ >= 0; }

  private:
    int number_;
};

}  // namespace qlsdk::platform
