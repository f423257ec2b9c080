#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <vector>

#include "QLSDKCoreKit/platform/UrlSession.h"

namespace qlsdk::platform::testing {

/// Keeps every task until the test answers it, on the test's own thread. Any thread. Obeys the port's rules
/// on body ceilings, header values and header-name case.
class FakeUrlSession final : public UrlSession {
  public:
    void dataTask(UrlRequest request, BodyCeiling ceiling, UrlCompletion completion) override;
    /// Ends what waits, and later what comes, on the calling thread.
    void refuseTasks(Task done) override;
    void acceptTasks() override;

    /// The requests seen so far, answered or not, oldest first.
    [[nodiscard]] std::vector<UrlRequest> requests() const;
    /// How many still wait for an answer.
    [[nodiscard]] std::size_t waiting() const;

    /// Answers the oldest waiting task. False when none waits.
    bool answer(std::int64_t statusCode, const HeaderFields& headers = {}, std::string_view body = {});
    bool fail(std::string_view message);

  private:
    struct Waiting {
        BodyCeiling ceiling;
        UrlCompletion completion;
    };
    bool complete(UrlResult result);

    mutable std::mutex mutex_;
    std::vector<UrlRequest> requests_;
    std::vector<Waiting> waiting_;
    bool refusing_ = false;
};

}  // namespace qlsdk::platform::testing
