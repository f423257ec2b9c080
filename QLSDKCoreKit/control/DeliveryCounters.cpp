#include "QLSDKCoreKit/control/DeliveryCounters.h"

#include <deque>
#include <mutex>
#include <string>

#include "QLSDKCoreKit/platform/internal/ForkSafeMutex.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"

namespace qlsdk::platform {

namespace {

struct Entry {
    std::string archiveName;
    std::string endpoint;
    DeliveryCounters counters;
};

struct Registry {
    ForkSafeMutex mutex;
    // Elements stay where they are.
    std::deque<Entry> entries;
};

Registry& registry() {
    static constinit ForkSafeOnce<Registry> leaked;
    return leaked.get([] { return Registry(); });
}

/// The sum over the entries that `isWanted`; absent when there is none.
template <typename Wanted>
std::optional<DeliveryCounts> sumOf(const Wanted& isWanted) {
    std::optional<DeliveryCounts> sum;
    const std::lock_guard lock(registry().mutex);
    for (const Entry& entry : registry().entries) {
        if (!isWanted(entry)) continue;
        if (!sum) sum.emplace();
        *sum += entry.counters.read();
    }
    return sum;
}

}  // namespace

DeliveryCounts DeliveryCounters::read() const noexcept {
    DeliveryCounts counts;
    for (std::size_t i = 0; i < kDeliveries; ++i) counts.of[i] = counts_[i].load(std::memory_order_relaxed);
    return counts;
}

DeliveryCounters& deliveryCountersFor(std::string_view archiveName, std::string_view endpoint) {
    const std::lock_guard lock(registry().mutex);
    for (Entry& entry : registry().entries) {
        if (entry.archiveName == archiveName && entry.endpoint == endpoint) return entry.counters;
    }
    Entry& made = registry().entries.emplace_back();
    made.archiveName = archiveName;
    made.endpoint = endpoint;
    return made.counters;
}

std::optional<DeliveryCounts> deliveryCounts(std::string_view archiveOrEndpoint) {
    if (archiveOrEndpoint.empty()) return std::nullopt;
    return sumOf([archiveOrEndpoint](const Entry& entry) {
        return entry.archiveName == archiveOrEndpoint || entry.endpoint == archiveOrEndpoint;
    });
}

DeliveryCounts totalDeliveryCounts() {
    return sumOf([](const Entry&) { return true; }).value_or(DeliveryCounts());
}

}  // namespace qlsdk::platform
