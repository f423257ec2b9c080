#pragma once

#include <memory>

#include "QLSDKCoreKit/control/ConsentGate.h"
#include "QLSDKCoreKit/platform/HostControls.h"
#include "QLSDKCoreKit/platform/UrlSession.h"

namespace qlsdk::platform {

/// The URL session that the kit sees: the platform's own behind the host's controls. Without consent a task
/// ends with an error; in a dry run the host's function takes the request and the answer is 200.
class ControlledUrlSession final : public UrlSession {
  public:
    /// The gate is borrowed and outlives this.
    ControlledUrlSession(std::shared_ptr<UrlSession> session, ConsentGate& gate, DryRunSink dryRun);

    void dataTask(UrlRequest request, BodyCeiling ceiling, UrlCompletion completion) override;

    void refuseTasks(Task done) override;
    void acceptTasks() override;

    /// A dry run has no ceiling: nothing of it waits for a network.
    [[nodiscard]] std::size_t mostUploadsOfAQueue() const noexcept override;

  private:
    const std::shared_ptr<UrlSession> session_;
    ConsentGate& gate_;
    const DryRunSink dryRun_;
};

}  // namespace qlsdk::platform
