#pragma once

#include <cstddef>
#include <memory>

#include "QLSDKCoreKit/platform/Queues.h"
#include "QLSDKCoreKit/platform/linux/threads/ForkAware.h"

namespace qlsdk::platform {

/// The main queue over an eventfd that is readable exactly while tasks wait. A second thread that pumps finds
/// nothing to run while the first is inside a task. In a child of fork() it starts empty, under the same
/// descriptor number, and without the thread of `startThread`.
class LinuxMainQueue final : public MainQueue, public ForkAware {
  public:
    LinuxMainQueue();
    ~LinuxMainQueue() override;

    void async(Task task) override;
    [[nodiscard]] bool isCurrent() const noexcept override;
    /// Opened by the first call; -1 when the process has no descriptor left, and then tried again by the
    /// next.
    [[nodiscard]] int fileDescriptor() override;
    std::size_t drain() override;
    void run() override;
    void stop() override;
    void startThread() override;

    void restartInChild() noexcept override;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace qlsdk::platform
