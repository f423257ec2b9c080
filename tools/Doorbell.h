#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace quillkit {

/// Tells any number of waiting threads that something has changed. Any thread; ringing never blocks.
class Doorbell {
  public:
    void ring();
    /// Every wait ends, and so does every later one.
    void close();

    [[nodiscard]] bool isClosed();
    /// How often it was rung. Taken before one looks for changes, so that none is missed.
    [[nodiscard]] std::uint64_t count();
    /// Comes back when it was rung more than `count` times or closed, or after `timeout`.
    void waitPast(std::uint64_t count, std::chrono::milliseconds timeout);

  private:
    std::mutex mutex_;
    std::condition_variable rung_;
    std::uint64_t count_ = 0;
    bool closed_ = false;
};

}  // namespace quillkit
