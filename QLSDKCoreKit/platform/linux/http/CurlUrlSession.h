#pragma once

#include <memory>

#include "QLSDKCoreKit/platform/Activity.h"
#include "QLSDKCoreKit/platform/UrlSession.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"
#include "QLSDKCoreKit/platform/linux/threads/ForkAware.h"

namespace qlsdk::platform {

struct HttpSettings;

/// The HTTP session over curl, on one thread of its own that starts with the first task and lives as long as
/// the process. At most four tasks are on the wire at once; the others wait their turn in order. Connections
/// are kept for the next task. In a child of fork() the session starts empty: no completion of the parent's
/// tasks is called there.
///
/// Where the system refuses the thread, the tasks wait; it is asked again at the next task and at the next
/// turn of any other thread of the library. Where it refuses curl what that needs, the tasks there are end
/// with an error, and the next task tries again.
class CurlUrlSession final : public UrlSession, public ForkAware {
  public:
    CurlUrlSession(const HttpOptions& options, std::shared_ptr<Activity> activity);
    ~CurlUrlSession() override;

    /// Throws std::bad_alloc without the memory for the task; `completion` is not called then.
    void dataTask(UrlRequest request, BodyCeiling ceiling, UrlCompletion completion) override;

    /// Ends the tasks on the HTTP thread and closes the connections of those on the wire; while there is no
    /// thread, on the caller's. A child of fork() goes on refusing.
    void refuseTasks(Task done) override;
    void acceptTasks() override;
    [[nodiscard]] std::size_t mostUploadsOfAQueue() const noexcept override { return mostUploadsOfAQueue_; }

    void restartInChild() noexcept override;

  private:
    class Engine;
    const std::shared_ptr<const HttpSettings> settings_;
    const std::size_t mostUploadsOfAQueue_;
    const std::shared_ptr<Activity> activity_;
    std::shared_ptr<Engine> engine_;
};

}  // namespace qlsdk::platform
