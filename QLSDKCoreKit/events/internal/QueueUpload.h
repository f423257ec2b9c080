#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "QLSDKCoreKit/events/internal/QueueCore.h"

namespace qlsdk {

/// One upload of an events queue. It ends exactly once: with the first result that it is given or, when
/// everyone who could give one has let go of it, as failed. Any thread.
///
/// Holds its queue, so that a failed batch finds its way back. In a child of fork() an upload of the parent's
/// has no end: its records are the parent's.
class AnalyticsEventsQueue::Core::Upload {
  public:
    /// Without a batch yet. `refusalsSeen` is the consent gate's count from before the batch was taken.
    Upload(std::shared_ptr<AnalyticsEventsQueue> queue, std::uint64_t refusalsSeen) noexcept;
    ~Upload();
    Upload(const Upload&) = delete;
    Upload& operator=(const Upload&) = delete;

    /// The records are the upload's from here on.
    void take(EventList batch) noexcept;
    void end(const std::optional<platform::UrlError>& error, std::int64_t statusCode,
             const platform::HeaderFields* headers) noexcept;
    /// Ends it as failed and tells why, in fixed words and in those of who complained.
    void fail(platform::DiagnosticKind kind, const char* cause, std::string_view detail) noexcept;
    [[nodiscard]] bool hasEnded() const noexcept { return hasEnded_; }

    /// The upload counts among those of the URL session until it leaves it, at the latest with its own end.
    void enterSession() noexcept;
    void leaveSession() noexcept;

  private:
    const std::shared_ptr<AnalyticsEventsQueue> queue_;
    const std::uint64_t refusalsSeen_;
    const std::uint64_t forkGeneration_;
    EventList batch_;
    std::atomic<bool> hasEnded_{true};
    std::atomic<bool> isInSession_{false};
};

}  // namespace qlsdk
