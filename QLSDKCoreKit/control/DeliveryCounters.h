#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "QLSDKCoreKit/Export.h"

namespace qlsdk::platform {

/// What became of the records of an upload queue. Each counts records, from the start of the process.
enum class Delivery : std::uint8_t {
    /// Sent in an upload that was answered 200; a dry run is one, too.
    accepted,
    /// Sent in an upload that failed for the first time and put back for the one retry.
    retried,
    /// Sent in an upload that failed, with no retry left: the record was a retry itself, its retry had been
    /// spent by a deferral, an archive held it and it is no record, or there was no memory to put it back.
    droppedAfterRetry,
    /// Sent in an upload that was answered 403, which is final.
    refusedByServer,
    /// Taken out of a batch before it was sent: in the place of an element that cannot be sent, or because
    /// it is by itself larger than an upload can be.
    filtered,
    /// Added to a list (pushed, put back, or deferred by a publish run) whose file could then not be written.
    /// Such a record is lost if the process ends before the file is written or the record sent: it may
    /// also be counted as any of the others later.
    lostToFailedWrite,
    /// Dropped because consent is refused: pushed during a refusal, waiting when it came, or sent before it
    /// in an upload that then failed with the retry still left.
    discarded,
    /// Not sent for now. The file of an earlier process that it was read from can be neither rewritten nor
    /// removed nor emptied, so each process to come would send it again.
    ///
    /// It is not lost: it goes as soon as the file can be changed. Counted once until then, however many runs
    /// hold it back.
    heldBack,
};
inline constexpr std::size_t kDeliveries = 8;

/// Numbers read at one moment; counts that change meanwhile may be seen or not, each for itself.
struct DeliveryCounts {
    std::array<std::uint64_t, kDeliveries> of{};

    [[nodiscard]] std::uint64_t operator[](Delivery what) const noexcept {
        return of[static_cast<std::size_t>(what)];
    }
    DeliveryCounts& operator+=(const DeliveryCounts& other) noexcept {
        for (std::size_t i = 0; i < kDeliveries; ++i) of[i] += other.of[i];
        return *this;
    }
    friend bool operator==(const DeliveryCounts&, const DeliveryCounts&) = default;
};

/// The counters of one upload queue. Any thread; nothing waits for anything. A queue counts on its own
/// threads only, never on that of the one who pushes.
class QLSDK_EXPORT DeliveryCounters {
  public:
    void add(Delivery what, std::size_t records) noexcept {
        counts_[static_cast<std::size_t>(what)].fetch_add(records, std::memory_order_relaxed);
    }
    [[nodiscard]] DeliveryCounts read() const noexcept;

  private:
    std::array<std::atomic<std::uint64_t>, kDeliveries> counts_{};
};

/// The counters of the queue with this archive name and endpoint, made on first use and never destroyed.
/// Queues of the same name and endpoint share theirs. For those who count.
[[nodiscard]] QLSDK_EXPORT DeliveryCounters& deliveryCountersFor(std::string_view archiveName,
                                                                 std::string_view endpoint);

/// The counts of the queue whose archive ("qlsdk-heartbeat.plist") or endpoint ("/v1/sdk/heartbeat") has that
/// name; absent when no such queue has been made in this process. Any thread.
[[nodiscard]] QLSDK_EXPORT std::optional<DeliveryCounts> deliveryCounts(std::string_view archiveOrEndpoint);

/// Of all queues together. Any thread.
[[nodiscard]] QLSDK_EXPORT DeliveryCounts totalDeliveryCounts();

}  // namespace qlsdk::platform
