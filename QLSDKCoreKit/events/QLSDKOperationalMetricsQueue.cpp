#include "QLSDKCoreKit/events/QLSDKOperationalMetricsQueue.h"

#include <string>

#include "QLSDKCoreKit/events/internal/BatchContexts.h"
#include "QLSDKCoreKit/network/QLPayloadProvider.h"
#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk {

namespace {

// The batch is sorted by these names, which travel in the archive with their messages.
constexpr const char* kCounterMetric = "CounterMetric";
constexpr const char* kTimerMetric = "TimerMetric";

}  // namespace

QLSDKOperationalMetricsQueue& QLSDKOperationalMetricsQueue::sharedInstance() {
    // Never destroyed: uploads may still call back while the process ends.
    static const auto& shared = *new std::shared_ptr<QLSDKOperationalMetricsQueue>([] {
        std::shared_ptr<QLSDKOperationalMetricsQueue> instance(new QLSDKOperationalMetricsQueue);
        instance->_eventsQueue =
            AnalyticsEventsQueue::create("/v1/sdk/metrics/operational", std::make_shared<QLPayloadProvider>(),
                                         "qlsdk-operational-metrics2.plist", 10, instance);
        return instance;
    }());
    return *shared;
}

void QLSDKOperationalMetricsQueue::addCount(std::int64_t count, std::string_view name) {
    pushMetric(kCounterMetric, count, name);
}

void QLSDKOperationalMetricsQueue::addLatency(std::int64_t latencyMillis, std::string_view name) {
    pushMetric(kTimerMetric, latencyMillis, name);
}

void QLSDKOperationalMetricsQueue::addLatencyFromTime(double startSeconds, std::string_view name) {
    const double now = platform::current().clock->secondsSince1970();
    addLatency(truncateToInt64((now - startSeconds) * 1000.0), name);
}

void QLSDKOperationalMetricsQueue::pushMetric(const char* messageName, std::int64_t value,
                                              std::string_view name) {
    picoproto_ctx_s* timestamp =
        _picoprotoTimestampWithTimestamp(platform::current().clock->secondsSince1970());
    picoproto_ctx_s* metric = picoproto_new(messageName);
    // On purpose: the timestamp stands first on the wire, before the lower field number.
    picoproto_write_embedded_message_field(metric, 2, timestamp, 1);
    picoproto_write_string_field(metric, 1, std::string(name).c_str());
    picoproto_write_varint_field(metric, 3, static_cast<std::uint64_t>(value));
    _eventsQueue->pushEvent(
        std::make_shared<EncodablePicoproto>(compacted(MessageContext(metric)).release()));
}

std::optional<Data> QLSDKOperationalMetricsQueue::parseEvents(AnalyticsEventsQueue&, const EventList& events,
                                                              std::int64_t) {
    const MessageContext metrics(picoproto_new("Metrics"));
    writeRepeated(metrics.get(), 1, contextsNamed(events, kCounterMetric));
    writeRepeated(metrics.get(), 2, contextsNamed(events, kTimerMetric));
    return bodyOf(metrics);
}

picoproto_ctx_s* QLSDKOperationalMetricsQueue::_picoprotoTimestampWithTimestamp(double secondsSince1970) {
    return timestampMessage(secondsSince1970).release();
}

}  // namespace qlsdk
