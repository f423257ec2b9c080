#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <utility>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

/// Counts the work under way: serial queues that have tasks, HTTP tasks in flight. Adapters hold
/// a `Token` for as long as a piece of work exists. Work on the main queue is the host's and does not count.
/// Any thread. Shared by the adapters of one platform and, like them, never destroyed.
class QLSDK_EXPORT Activity {
    struct Count {
        std::atomic<std::size_t> tokens{0};
        std::atomic<std::size_t> waiting{0};
    };
    /// The count, and what wakes those who wait for it.
    struct State;

  public:
    /// One piece of work; move-only. Take the token of a follow-up before giving up one's own, so that
    /// the count never touches zero in between.
    class QLSDK_EXPORT Token {
      public:
        Token() noexcept = default;
        /// A null activity counts nothing.
        explicit Token(const std::shared_ptr<Activity>& activity) noexcept {
            if (activity == nullptr) return;
            count_ = activity->count_;
            count_->tokens.fetch_add(1, std::memory_order_acq_rel);
        }
        Token(Token&& other) noexcept = default;
        Token& operator=(Token&& other) noexcept {
            release();
            count_ = std::exchange(other.count_, nullptr);
            return *this;
        }
        ~Token() { release(); }

      private:
        void release() noexcept {
            if (count_ == nullptr) return;
            const std::shared_ptr<Count> count = std::exchange(count_, nullptr);
            // Sequentially consistent on both sides: either a waiter sees the count at zero or this sees it.
            if (count->tokens.fetch_sub(1) == 1 && count->waiting != 0) wake(*count);
        }
        static void wake(Count& count) noexcept;
        std::shared_ptr<Count> count_;
    };

    Activity();
    ~Activity();

    /// Blocks the caller until nothing is under way or `timeout` has passed; true when idle. Must not be
    /// called from a task of the library's own, which would wait for itself.
    [[nodiscard]] bool waitUntilIdle(std::chrono::milliseconds timeout);

    [[nodiscard]] std::size_t count() const noexcept { return count_->tokens.load(); }

    /// Starts again at zero; tokens taken before no longer count. For an adapter in a child process whose
    /// parent keeps the work: the caller makes sure that no other thread is using this object.
    void restart();

  private:
    /// Of a `State`.
    std::shared_ptr<Count> count_;
};

}  // namespace qlsdk::platform
