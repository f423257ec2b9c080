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

Activity::Activity() : state_(std::make_unique<State>()) {}
Activity::~Activity() = default;

std::size_t Activity::count() const noexcept { return state_->count.load(std::memory_order_acquire); }

bool Activity::waitUntilIdle(std::chrono::milliseconds timeout) {
    std::unique_lock lock(state_->mutex);
    return state_->becameIdle.wait_for(lock, timeout, [this] { return count() == 0; });
}

Activity::Token::Token(std::shared_ptr<Activity> activity) noexcept : activity_(std::move(activity)) {
    if (activity_ != nullptr) activity_->state_->count.fetch_add(1, std::memory_order_acq_rel);
}

Activity::Token& Activity::Token::operator=(Token&& other) noexcept {
    release();
    activity_ = std::exchange(other.activity_, nullptr);
    return *this;
}

Activity::Token::~Token() { release(); }

void Activity::Token::release() noexcept {
    if (activity_ == nullptr) return;
    const std::shared_ptr<Activity> activity = std::exchange(activity_, nullptr);
    if (activity->state_->count.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    // Taking the mutex orders this wake-up after a waiter's look at the count, so that none is missed.
    const std::lock_guard lock(activity->state_->mutex);
    activity->state_->becameIdle.notify_all();
}

}  // namespace qlsdk::platform
