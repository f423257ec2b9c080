#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "Doorbell.h"

namespace quillkit {

/// Where requests wait that get no answer. Any thread.
class StallGate {
  public:
    /// `bell` is borrowed and rung when a request comes or goes.
    explicit StallGate(Doorbell& bell) : bell_(bell) {}

    /// Blocks until those that wait are let go.
    void wait();
    /// Lets those go that wait now.
    void release();
    /// Lets all go and stops none any more.
    void close();
    /// How many wait.
    [[nodiscard]] std::size_t count();

  private:
    Doorbell& bell_;
    std::mutex mutex_;
    std::condition_variable released_;
    std::uint64_t round_ = 0;
    std::size_t count_ = 0;
    bool closed_ = false;
};

}  // namespace quillkit
