#include "QLSDKCoreKit/platform/testing/ManualQueues.h"

#include <algorithm>
#include <utility>

namespace qlsdk::platform::testing {

void ManualQueue::async(Task task) {
    if (!task) return;
    const std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
}

bool ManualQueue::isCurrent() const noexcept {
    return running_.load() == std::this_thread::get_id();
}

std::size_t ManualQueue::waiting() const {
    const std::lock_guard lock(mutex_);
    return tasks_.size();
}

bool ManualQueue::runOne() {
    Task task;
    {
        const std::lock_guard lock(mutex_);
        if (tasks_.empty() || isCurrent()) return false;
        task = std::move(tasks_.front());
        tasks_.pop_front();
    }
    running_ = std::this_thread::get_id();
    try {
        task();
    } catch (...) {
        // The port swallows what a task throws.
    }
    running_ = std::thread::id();
    return true;
}

std::size_t ManualQueue::drain() {
    std::size_t ran = 0;
    for (std::size_t left = waiting(); left > 0 && runOne(); --left) ++ran;
    return ran;
}

std::shared_ptr<SerialQueue> ManualQueues::makeSerialQueue(const std::string& label) {
    const std::lock_guard lock(mutex_);
    queues_.push_back(std::make_shared<ManualQueue>(label));
    return queues_.back();
}

std::vector<std::shared_ptr<ManualQueue>> ManualQueues::labelled(const std::string& label) const {
    const std::lock_guard lock(mutex_);
    std::vector<std::shared_ptr<ManualQueue>> found;
    std::copy_if(queues_.begin(), queues_.end(), std::back_inserter(found),
                 [&](const auto& queue) { return queue->label() == label; });
    return found;
}

std::size_t ManualQueues::runUntilIdle() {
    std::size_t total = 0;
    for (std::size_t ran = 1; ran > 0; total += ran) ran = main_->drain() + runSerialQueuesUntilIdle();
    return total;
}

std::size_t ManualQueues::runSerialQueuesUntilIdle() {
    std::size_t total = 0;
    for (std::size_t ran = 1; ran > 0; total += ran) {
        std::vector<std::shared_ptr<ManualQueue>> queues;
        {
            const std::lock_guard lock(mutex_);
            queues = queues_;
        }
        ran = 0;
        for (const auto& queue : queues) ran += queue->drain();
    }
    return total;
}

}  // namespace qlsdk::platform::testing
