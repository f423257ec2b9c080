#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"

namespace qlsdk {

namespace platform {
class Clock;
}

/// Records named counters and latencies and uploads them ten at a time. Each call is one message; nothing is
/// summed on the device. Unsent ones wait in the file "qlsdk-operational-metrics2.plist" of the caches
/// directory.
///
/// Any thread: the caller encodes one small message and queues it; files and network are the queue's. Names
/// are UTF-8 and end at their first NUL; an empty one is legal, and what is no UTF-8 becomes U+FFFD. Nothing
/// is thrown: a name that is too long for a message (131,072 bytes), or memory that runs out, costs the event
/// alone, which diagnostics tell.
class QLSDK_EXPORT QLSDKOperationalMetricsQueue final : public AnalyticsEventsQueueDelegate {
  public:
    /// The one instance, made on first use, which reads the archive file on the calling thread. Any thread.
    [[nodiscard]] static QLSDKOperationalMetricsQueue& sharedInstance();

    /// Something happened `count` times.
    void addCount(std::int64_t count, std::string_view name);

    /// Something took that long.
    void addLatency(std::int64_t latencyMillis, std::string_view name);

    /// Something began at `startSeconds` since 1970 and ends now. The latency is cut toward zero to whole
    /// milliseconds, negative for a start in the future, saturated out of range and 0 for no number.
    void addLatencyFromTime(double startSeconds, std::string_view name);

    /// "Metrics": every counter as field 1, then every timer as field 2, each in the given order. Messages of
    /// other names are left out. Throws when the rest does not all fit.
    [[nodiscard]] std::optional<Data> parseEvents(AnalyticsEventsQueue& queue, const EventList& events,
                                                  std::int64_t maxSequenceId) override;
    [[nodiscard]] std::size_t recordsThatFit(AnalyticsEventsQueue& queue, const EventList& events) override;

  private:
    QLSDKOperationalMetricsQueue();

    /// A new "Timestamp" message.
    [[nodiscard]] static MessageContext _picoprotoTimestampWithTimestamp(double secondsSince1970);
    void pushMetric(const char* messageName, std::int64_t value, std::string_view name);

    const std::shared_ptr<platform::Clock> clock_;
    /// Set once, before the instance is shared.
    std::shared_ptr<AnalyticsEventsQueue> _eventsQueue;
};

}  // namespace qlsdk
