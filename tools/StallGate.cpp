#include "StallGate.h"

namespace quillkit {

void StallGate::wait() {
    {
        std::unique_lock lock(mutex_);
        ++count_;
        bell_.ring();
        const std::uint64_t round = round_;
        released_.wait(lock, [&] { return round_ != round || closed_; });
        --count_;
    }
    bell_.ring();
}

void StallGate::release() {
    {
        const std::lock_guard lock(mutex_);
        ++round_;
    }
    released_.notify_all();
}

void StallGate::close() {
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
    }
    released_.notify_all();
}

std::size_t StallGate::count() {
    const std::lock_guard lock(mutex_);
    return count_;
}

}  // namespace quillkit
