#pragma once

#include <chrono>
#include <cstddef>
#include <memory>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

/// Counts the work under way: serial queues that have tasks, HTTP tasks in flight. Adapters hold
/// a `Token` for as long as a piece of work exists. Work on the main queue is the host's and does not count.
/// Any thread. Shared by the adapters of one platform and, like them, never destroyed.
class QLSDK_EXPORT Activity {
    struct State;

  public:
    /// One piece of work; move-only. Take the token of a follow-up before giving up one's own, so that
    /// the count never touches zero in between.
    class QLSDK_EXPORT Token {
      public:
        Token() noexcept = default;
        explicit Token(const std::shared_ptr<Activity>& activity) noexcept;
        Token(Token&& other) noexcept = default;
        Token& operator=(Token&& other) noexcept;
        ~Token();

      private:
        void release() noexcept;
        std::shared_ptr<State> state_;
    };

    Activity();
    ~Activity();

    /// Blocks the caller until nothing is under way or `timeout` has passed; true when idle. Must not be
    /// called from a task of the library's own, which would wait for itself.
    [[nodiscard]] bool waitUntilIdle(std::chrono::milliseconds timeout);

    [[nodiscard]] std::size_t count() const noexcept;

    /// Starts again at zero; tokens taken before no longer count. For an adapter in a child process whose
    /// parent keeps the work: the caller makes sure that no other thread is using this object.
    void restart();

  private:
    std::shared_ptr<State> state_;
};

}  // namespace qlsdk::platform
