#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/events/AnalyticsEventsQueueDelegate.h"

namespace qlsdk {

class EncodablePicoproto;
class QLAuthHeaderProvider;

/// Keys of the archive's root dictionary and the response header that delays a retry.
QLSDK_EXTERN_C const char* const kQLSDKUnsentEventsKey;
QLSDK_EXTERN_C const char* const kQLSDKMaxSequenceIdKey;
QLSDK_EXTERN_C const char* const kQLSDKRetryAfterHeader;

/// Numbers encoded events, keeps them in a list that is mirrored to a file, and uploads them in batches; a
/// failed batch is tried once more, not before the delay that the server asked for.
///
/// The list and the sequence counter belong to a serial queue of the object's own. The list is newest
/// first and has no upper bound. Publishing starts when a push makes the list `maxEventBuffer` long, on
/// `flushQueue`, and when the host posts `kWillResignActiveNotification`; there is no timer.
///
/// A run sends all that is due in one request. What the delegate says does not fit into one stays in the list
/// for another run, which follows at once. Where the URL session has a ceiling for the uploads of a queue, a
/// run beyond it does nothing and is made when one of them ends.
///
/// What is promised: a record is sent at most twice. Records that wait survive the end of the process; those
/// in an upload at that moment do not. A file that cannot be read is not overwritten, but read again or set
/// aside; records from a file that can be neither rewritten nor removed nor emptied are held back. Failures
/// are never reported to the one who pushed; they are counted (control/DeliveryCounters.h).
///
/// The host's consent (platform/HostControls.h) comes first. While it is undecided every record stays in the
/// file and no run does anything; once granted, one run sends what waits. A refusal empties the list, deletes
/// the file and starts the numbering again.
class QLSDK_EXPORT AnalyticsEventsQueue final : public std::enable_shared_from_this<AnalyticsEventsQueue> {
  public:
    /// Reads the archive on the calling thread, which may block on the disk, and starts listening for the
    /// host's notification. Settles the platform. Throws only when memory runs out.
    ///
    /// `analyticsEndpoint` is a path below the API base URL, `archiveName` a file name in the caches
    /// directory, `maxEventBuffer` a number of records; with 0 or 1 each push is published. Held: the
    /// provider strongly (null sends no such headers), the delegate weakly. An absent endpoint, archive name
    /// or delegate is reported as a handled assertion and the queue works without it: no path, no file, no
    /// body. Two queues with one archive name overwrite each other's file.
    [[nodiscard]] static std::shared_ptr<AnalyticsEventsQueue> create(
        std::optional<std::string> analyticsEndpoint,
        std::shared_ptr<QLAuthHeaderProvider> authHeaderProvider, std::optional<std::string> archiveName,
        std::uint64_t maxEventBuffer, std::weak_ptr<AnalyticsEventsQueueDelegate> delegate);
    /// Any thread. Uploads under way hold the queue, so that it ends after them. Where pushes still wait,
    /// which are dropped, the file may have to be written once more, on the thread that lets go of it.
    ~AnalyticsEventsQueue();
    AnalyticsEventsQueue(const AnalyticsEventsQueue&) = delete;
    AnalyticsEventsQueue& operator=(const AnalyticsEventsQueue&) = delete;

    /// Queues one encoded event and returns at once. Any thread. Shares `event` until it has been sent or its
    /// one retry is spent; a null one takes a number and is never sent. When the archive cannot be written,
    /// only the record's survival of a restart is lost. A queue that is gone when the push's turn comes drops
    /// the event. Throws only when memory runs out; the event is then dropped.
    void pushEvent(std::shared_ptr<EncodablePicoproto> event);

    /// Asks for a publish run and returns at once. Any thread. Throws only when memory runs out.
    void flushQueue();

    /// Null when there is none or it is gone. Like its setter to be called before the first push, or on the
    /// thread that pushes: not synchronised with a publish run under way.
    [[nodiscard]] std::shared_ptr<AnalyticsEventsQueueDelegate> delegate() const;
    /// Held weakly; an empty one leaves the requests without bodies.
    void setDelegate(std::weak_ptr<AnalyticsEventsQueueDelegate> delegate);

  private:
    class Core;

    AnalyticsEventsQueue(std::optional<std::string> analyticsEndpoint,
                         std::shared_ptr<QLAuthHeaderProvider> authHeaderProvider,
                         const std::optional<std::string>& archiveName, std::uint64_t maxEventBuffer,
                         std::weak_ptr<AnalyticsEventsQueueDelegate> delegate);

    const std::unique_ptr<Core> core_;
};

}  // namespace qlsdk
