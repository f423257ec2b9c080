#include "QLSDKCoreKit/platform/Activity.h"

#include <condition_variable>
#include <mutex>
#include <utility>

namespace qlsdk::platform {

struct Activity::State : Count {
    std::mutex mutex;
    std::condition_variable becameIdle;
};

Activity::Activity() : count_(std::make_shared<State>()) {}
Activity::~Activity() = default;

bool Activity::waitUntilIdle(std::chrono::milliseconds timeout) {
    auto& state = static_cast<State&>(*count_);
    ++state.waiting;
    std::unique_lock lock(state.mutex);
    const bool isIdle = state.becameIdle.wait_for(lock, timeout, [&] { return state.tokens == 0; });
    --state.waiting;
    return isIdle;
}

void Activity::restart() {
    // Leaked: a thread that waits in it would be waited for by its end, and is not in this process.
    (void)new std::shared_ptr<Count>(std::move(count_));
    count_ = std::make_shared<State>();
}

void Activity::Token::wake(Count& count) noexcept {
    auto& state = static_cast<State&>(count);
    // Taking the mutex orders this wake-up after a waiter's look at the count, so that none is missed.
    const std::lock_guard lock(state.mutex);
    state.becameIdle.notify_all();
}

}  // namespace qlsdk::platform
