#include "tools/collector/ChangeCondition.h"

namespace quillkit {

void ChangeCondition::notify() {
    {
        const std::lock_guard lock(mutex_);
        ++count_;
    }
    condition_.notify_all();
}

void ChangeCondition::close() {
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
    }
    condition_.notify_all();
}

bool ChangeCondition::isClosed() {
    const std::lock_guard lock(mutex_);
    return closed_;
}

std::uint64_t ChangeCondition::count() {
    const std::lock_guard lock(mutex_);
    return count_;
}

void ChangeCondition::waitPast(std::uint64_t count, std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    condition_.wait_for(lock, timeout, [&] { return count_ > count || closed_; });
}

}  // namespace quillkit
