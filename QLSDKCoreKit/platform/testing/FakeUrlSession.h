#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
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
    [[nodiscard]] std::size_t mostUploadsOfAQueue() const noexcept override { return mostUploads_; }
    /// No ceiling until it is set.
    void setMostUploadsOfAQueue(std::size_t uploads) noexcept { mostUploads_ = uploads; }

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

    std::atomic<std::size_t> mostUploads_{std::numeric_limits<std::size_t>::max()};
    mutable std::mutex mutex_;
    std::vector<UrlRequest> requests_;
    std::vector<Waiting> waiting_;
    bool refusing_ = false;
};

}  // namespace qlsdk::platform::testing
