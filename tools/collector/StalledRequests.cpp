#include "tools/collector/StalledRequests.h"

namespace quillkit {

void StalledRequests::wait() {
    {
        std::unique_lock lock(mutex_);
        ++count_;
        changes_.notify();
        const std::uint64_t round = round_;
        released_.wait(lock, [&] { return round_ != round || closed_; });
        --count_;
    }
    changes_.notify();
}

void StalledRequests::release() {
    {
        const std::lock_guard lock(mutex_);
        ++round_;
    }
    released_.notify_all();
}

void StalledRequests::close() {
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
    }
    released_.notify_all();
}

std::size_t StalledRequests::count() {
    const std::lock_guard lock(mutex_);
    return count_;
}

}  // namespace quillkit
