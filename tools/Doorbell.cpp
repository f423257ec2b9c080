#include "Doorbell.h"

namespace quillkit {

void Doorbell::ring() {
    {
        const std::lock_guard lock(mutex_);
        ++count_;
    }
    rung_.notify_all();
}

void Doorbell::close() {
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
    }
    rung_.notify_all();
}

bool Doorbell::isClosed() {
    const std::lock_guard lock(mutex_);
    return closed_;
}

std::uint64_t Doorbell::count() {
    const std::lock_guard lock(mutex_);
    return count_;
}

void Doorbell::waitPast(std::uint64_t count, std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    rung_.wait_for(lock, timeout, [&] { return count_ > count || closed_; });
}

}  // namespace quillkit
