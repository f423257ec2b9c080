#pragma once

#include <memory>

#include "QLSDKCoreKit/platform/Activity.h"
#include "QLSDKCoreKit/platform/UrlSession.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"
#include "QLSDKCoreKit/platform/linux/internal/ForkAware.h"

namespace qlsdk::platform {

/// The HTTP session over curl, on one thread of its own that starts with the first task and lives as long as
/// the process. At most four tasks are on the wire at once; the others wait their turn in order. Connections
/// are kept for the next task. In a child of fork() the session starts empty: no completion of the parent's
/// tasks is called there.
class CurlUrlSession final : public UrlSession, public ForkAware {
  public:
    CurlUrlSession(const HttpOptions& options, std::shared_ptr<Activity> activity);
    ~CurlUrlSession() override;

    void dataTask(UrlRequest request, BodyCeiling ceiling, UrlCompletion completion) override;

    /// Ends the tasks on the HTTP thread and closes the connections of those on the wire. A child of fork()
    /// goes on refusing.
    void refuseTasks(Task done) override;
    void acceptTasks() override;

    void restartInChild() noexcept override;

  private:
    class Engine;
    const HttpOptions options_;
    const std::shared_ptr<Activity> activity_;
    std::shared_ptr<Engine> engine_;
};

}  // namespace qlsdk::platform
