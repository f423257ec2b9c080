#pragma once

#include <memory>
#include <optional>
#include <string>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"
#include "QLSDKCoreKit/events/QLSDKHeartbeat.h"
#include "QLSDKCoreKit/platform/Queues.h"

namespace qlsdk {

/// Sends each feature kit's heartbeat at most once in 24 hours. The date of the last one is kept in the user
/// defaults under "com.quillo.quill-kit.heartbeat.<KIT>" and so outlives the process; what could not be sent
/// waits in the file "qlsdk-heartbeat.plist" of the caches directory.
class QLSDK_EXPORT QLSDKHeartbeatEventsQueue final : public AnalyticsEventsQueueDelegate {
  public:
    /// The one instance, made on first use, which reads the archive file on the calling thread. Any thread.
    [[nodiscard]] static QLSDKHeartbeatEventsQueue& sharedInstance();

    /// Queues the heartbeat if its kit is due: never for `QLSDKKitTypeNone` and values outside the table, at
    /// once for a kit without a stored date, else when strictly more than 86400 seconds have passed. The date
    /// is stored when the heartbeat is queued: an upload that fails does not make the kit due again. While
    /// consent is refused nothing happens at all.
    ///
    /// Runs on the calling thread up to the encoding (user defaults, keychain and clock are read); the rest
    /// is the queue's. Two calls for one kit at the same moment may both be sent. Nothing is thrown: a
    /// heartbeat that cannot be encoded or queued leaves no date, so that the next one is due, and
    /// diagnostics tell of it.
    void addEvent(const QLSDKHeartbeat& heartbeat);

    /// "HearbeatBatch": every heartbeat as field 1, in the given order. Throws when they do not all fit.
    [[nodiscard]] std::optional<Data> parseEvents(AnalyticsEventsQueue& queue, const EventList& events,
                                                  std::int64_t maxSequenceId) override;
    [[nodiscard]] std::size_t recordsThatFit(AnalyticsEventsQueue& queue, const EventList& events) override;

  private:
    QLSDKHeartbeatEventsQueue();

    [[nodiscard]] static bool _isTimeForHeartbeatForKitType(QLSDKKitType kitType);
    // Spelled without the second "t" on purpose: the established name.
    [[nodiscard]] static std::optional<std::string> _hearbeatKeyForKitType(QLSDKKitType kitType);
    [[nodiscard]] static double _heartbeatEmitPeriod() noexcept;

    /// Set once, before the instance is shared.
    std::shared_ptr<AnalyticsEventsQueue> _eventsQueue;
    /// Made and held, but nothing is given to it: a heartbeat is encoded on the thread that adds it.
    std::shared_ptr<platform::SerialQueue> _dispatchQueue;
};

}  // namespace qlsdk
