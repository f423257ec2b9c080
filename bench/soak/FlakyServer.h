#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <string_view>

#include "Ledger.h"

#include "QLSDKCoreKit/events/AnalyticsEventsQueueDelegate.h"
#include "QLSDKCoreKit/platform/Queues.h"
#include "QLSDKCoreKit/platform/UrlSession.h"

namespace qlsdk::soak {

/// A service that answers as it likes: most requests with 200, the others with 500, 403, 429 and a delay, or
/// not at all. Answers come on a queue of its own. A fixed seed decides which.
class FlakyServer final : public platform::UrlSession {
  public:
    enum Kind { ok, serverError, refusal, tooMany, noAnswer, kKinds };
    static constexpr std::array<std::string_view, kKinds> kKindNames = {
        "200", "500", "403", "429 with a delay", "transport error"};
    static constexpr std::int64_t kLongestDelayMillis = 5000;

    /// Notes every record that arrives in `ledger`, which must outlive the server.
    FlakyServer(std::shared_ptr<platform::SerialQueue> thread, Ledger& ledger)
        : thread_(std::move(thread)), ledger_(ledger) {}

    void dataTask(platform::UrlRequest request, platform::BodyCeiling ceiling,
                  platform::UrlCompletion completion) override;

    /// From now on every answer is 200. Any thread.
    void calmDown() noexcept { calm_ = true; }

    /// How often it answered in each way. Read only when nothing is under way.
    [[nodiscard]] const std::array<std::uint64_t, kKinds>& answers() const noexcept { return answers_; }

  private:
    [[nodiscard]] Kind nextKind();
    [[nodiscard]] platform::UrlResult resultOf(Kind kind);
    void noteRecords(const Data& body, Kind kind);

    const std::shared_ptr<platform::SerialQueue> thread_;
    std::atomic<bool> calm_{false};
    // These belong to `thread_`.
    Ledger& ledger_;
    std::minstd_rand random_{42};
    std::array<std::uint64_t, kKinds> answers_{};
};

/// Builds the bodies that the server reads: the sequence id of each record in eight bytes.
class SequenceIds final : public AnalyticsEventsQueueDelegate {
  public:
    std::optional<Data> parseEvents(AnalyticsEventsQueue& queue, const EventList& events,
                                    std::int64_t maxSequenceId) override;
};

}  // namespace qlsdk::soak
