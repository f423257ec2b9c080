#include "QLSDKCoreKit/platform/internal/ThreadEnd.h"

#include <atomic>
#include <cstdint>
#include <optional>

#include <pthread.h>

namespace qlsdk::platform {

namespace {

// Wider than the system's keys, all of which may occur. One key serves every user, because a process has few.
constexpr std::uint64_t kNoKey = UINT64_MAX;
constinit std::atomic<std::uint64_t> theKey{kNoKey};

extern "C" void runThreadEnds(void* first) {
    for (auto* end = static_cast<ThreadEnd*>(first); end != nullptr;) {
        ThreadEnd* const next = end->next;
        end->run();
        end = next;
    }
}

// Without a one-time block: a fork in the middle of one would leave it closed for the child.
std::optional<pthread_key_t> threadKey() noexcept {
    std::uint64_t key = theKey.load(std::memory_order_acquire);
    if (key != kNoKey) return static_cast<pthread_key_t>(key);
    pthread_key_t made{};
    if (pthread_key_create(&made, runThreadEnds) != 0) return std::nullopt;
    if (theKey.compare_exchange_strong(key, made, std::memory_order_acq_rel)) return made;
    pthread_key_delete(made);
    return static_cast<pthread_key_t>(key);
}

}  // namespace

bool atThreadEnd(ThreadEnd& end) noexcept {
    const std::optional<pthread_key_t> key = threadKey();
    if (!key) return false;
    end.next = static_cast<ThreadEnd*>(pthread_getspecific(*key));
    return pthread_setspecific(*key, &end) == 0;
}

}  // namespace qlsdk::platform
