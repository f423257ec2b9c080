#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace quillkit {

/// Tells any number of waiting threads that something has changed. Any thread; `notify` never waits for one
/// of them.
class ChangeCondition {
  public:
    void notify();
    /// Every wait ends, and so does every later one.
    void close();

    [[nodiscard]] bool isClosed();
    /// How many changes were notified. A caller takes it before it looks for changes, so that it misses none.
    [[nodiscard]] std::uint64_t count();
    /// Returns once more than `count` changes were notified, after `close`, or after `timeout`.
    void waitPast(std::uint64_t count, std::chrono::milliseconds timeout);

  private:
    std::mutex mutex_;
    std::condition_variable condition_;
    std::uint64_t count_ = 0;
    bool closed_ = false;
};

}  // namespace quillkit
