#include "QLSDKCoreKit/platform/Activity.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace qlsdk::platform {

struct Activity::State {
    std::atomic<std::size_t> count{0};
    std::mutex mutex;
    std::condition_variable becameIdle;
};

Activity::Activity() : state_(std::make_shared<State>()) {}
Activity::~Activity() = default;

std::size_t Activity::count() const noexcept {
    return state_->count.load(std::memory_order_acquire);
}

bool Activity::waitUntilIdle(std::chrono::milliseconds timeout) {
    std::unique_lock lock(state_->mutex);
    return state_->becameIdle.wait_for(lock, timeout, [this] { return count() == 0; });
}

void Activity::restart() {
    // Leaked: a thread that waits in it would be waited for by its end, and is not in this process.
    (void)new std::shared_ptr<State>(std::move(state_));
    state_ = std::make_shared<State>();
}

Activity::Token::Token(const std::shared_ptr<Activity>& activity) noexcept {
    if (activity == nullptr) return;
    state_ = activity->state_;
    state_->count.fetch_add(1, std::memory_order_acq_rel);
}

Activity::Token& Activity::Token::operator=(Token&& other) noexcept {
    release();
    state_ = std::exchange(other.state_, nullptr);
    return *this;
}

Activity::Token::~Token() {
    release();
}

void Activity::Token::release() noexcept {
    if (state_ == nullptr) return;
    const std::shared_ptr<State> state = std::exchange(state_, nullptr);
    if (state->count.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    // Taking the mutex orders this wake-up after a waiter's look at the count, so that none is missed.
    const std::lock_guard lock(state->mutex);
    state->becameIdle.notify_all();
}

}  // namespace qlsdk::platform
