#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "tools/collector/ChangeCondition.h"

namespace quillkit {

/// The requests that wait and get no answer. Any thread.
class StalledRequests {
  public:
    /// `changes` is borrowed; it is notified when a request comes or goes.
    explicit StalledRequests(ChangeCondition& changes) : changes_(changes) {}

    /// Blocks the calling thread, which serves a request, until `release` or `close`.
    void wait();
    /// Ends every wait that is under way.
    void release();
    /// Ends every wait, and every later one at once.
    void close();
    /// How many requests wait.
    [[nodiscard]] std::size_t count();

  private:
    ChangeCondition& changes_;
    std::mutex mutex_;
    std::condition_variable released_;
    std::uint64_t round_ = 0;
    std::size_t count_ = 0;
    bool closed_ = false;
};

}  // namespace quillkit
