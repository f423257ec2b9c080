#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "QLSDKCoreKit/platform/Queues.h"

namespace qlsdk::platform::testing {

/// A queue whose tasks run when, and on the thread where, the test says so.
class ManualQueue final : public MainQueue {
  public:
    explicit ManualQueue(std::string label) : label_(std::move(label)) {}

    void async(Task task) override;
    [[nodiscard]] bool isCurrent() const noexcept override;
    /// True while tasks wait: whoever drives the queue is taken to run them all before it looks at anything.
    [[nodiscard]] bool hasNext() const noexcept override { return waiting() > 0; }

    [[nodiscard]] const std::string& label() const noexcept { return label_; }
    [[nodiscard]] std::size_t waiting() const;
    /// Runs the oldest task; false when there is none.
    bool runOne();

    int fileDescriptor() override { return -1; }
    std::size_t drain() override;
    void run() override { drain(); }
    void stop() override {}
    void startThread() override {}

  private:
    const std::string label_;
    mutable std::mutex mutex_;
    std::deque<Task> tasks_;
    std::atomic<std::thread::id> running_{};
};

/// Makes manual queues and remembers them.
class ManualQueues final : public Queues {
  public:
    ManualQueues() : main_(std::make_shared<ManualQueue>("main")) {}

    std::shared_ptr<SerialQueue> makeSerialQueue(const std::string& label) override;
    std::shared_ptr<MainQueue> mainQueue() override { return main_; }

    /// Every serial queue made so far with that label, oldest first.
    [[nodiscard]] std::vector<std::shared_ptr<ManualQueue>> labelled(const std::string& label) const;
    [[nodiscard]] const std::shared_ptr<ManualQueue>& main() const noexcept { return main_; }

    /// Runs tasks of all queues, the main one included, until none is left; returns how many ran.
    std::size_t runUntilIdle();
    /// The same without the main queue, as in a host that never pumps it.
    std::size_t runSerialQueuesUntilIdle();

  private:
    mutable std::mutex mutex_;
    std::shared_ptr<ManualQueue> main_;
    std::vector<std::shared_ptr<ManualQueue>> queues_;
};

}  // namespace qlsdk::platform::testing
