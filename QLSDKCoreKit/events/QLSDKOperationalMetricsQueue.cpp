#include "QLSDKCoreKit/events/QLSDKOperationalMetricsQueue.h"

#include <utility>

#include "QLSDKCoreKit/events/internal/BatchContexts.h"
#include "QLSDKCoreKit/events/internal/EventRecording.h"
#include "QLSDKCoreKit/network/QLPayloadProvider.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"

namespace qlsdk {

namespace {

// The batch is sorted by these names, which travel in the archive with their messages.
constexpr const char* kCounterMetric = "CounterMetric";
constexpr const char* kTimerMetric = "TimerMetric";
constexpr std::uint64_t kCountersField = 1;
constexpr std::uint64_t kTimersField = 2;

std::uint64_t fieldOf(const picoproto_ctx_s& metric) {
    const std::string_view name = metric.name != nullptr ? metric.name : "";
    if (name == kCounterMetric) return kCountersField;
    return name == kTimerMetric ? kTimersField : 0;
}

}  // namespace

QLSDKOperationalMetricsQueue& QLSDKOperationalMetricsQueue::sharedInstance() {
    // Never destroyed: uploads may still call back while the process ends.
    static constinit platform::ForkSafeOnce<std::shared_ptr<QLSDKOperationalMetricsQueue>> shared;
    return *shared.get([] {
        std::shared_ptr<QLSDKOperationalMetricsQueue> instance(new QLSDKOperationalMetricsQueue);
        instance->_eventsQueue =
            AnalyticsEventsQueue::create("/v1/sdk/metrics/operational", std::make_shared<QLPayloadProvider>(),
                                         "qlsdk-operational-metrics2.plist", 10, instance);
        return instance;
    });
}

QLSDKOperationalMetricsQueue::QLSDKOperationalMetricsQueue() : clock_(platform::current().clock) {}

void QLSDKOperationalMetricsQueue::addCount(std::int64_t count, std::string_view name) {
    pushMetric(kCounterMetric, count, name);
}

void QLSDKOperationalMetricsQueue::addLatency(std::int64_t latencyMillis, std::string_view name) {
    pushMetric(kTimerMetric, latencyMillis, name);
}

void QLSDKOperationalMetricsQueue::addLatencyFromTime(double startSeconds, std::string_view name) {
    recordEvent(kTimerMetric, [&] {
        const double now = clock_->secondsSince1970();
        addLatency(truncateToInt64((now - startSeconds) * 1000.0), name);
    });
}

void QLSDKOperationalMetricsQueue::pushMetric(const char* messageName, std::int64_t value,
                                              std::string_view name) {
    recordEvent(messageName, [&] {
        MessageContext timestamp = _picoprotoTimestampWithTimestamp(clock_->secondsSince1970());
        MessageContext metric(picoproto_new(messageName));
        const bool isDated = isComplete(timestamp);
        // On purpose: the timestamp stands first on the wire, before the lower field number.
        writeMessageField(metric, 2, std::move(timestamp));
        writeUtf8Field(metric, 1, name);
        picoproto_write_varint_field(metric.get(), 3, static_cast<std::uint64_t>(value));
        if (!isDated || !isComplete(metric)) {
            return reportLostEvent(messageName, EventLoss::incompleteMessage);
        }
        _eventsQueue->pushEvent(std::make_shared<EncodablePicoproto>(compacted(std::move(metric))));
    });
}

std::optional<Data> QLSDKOperationalMetricsQueue::parseEvents(AnalyticsEventsQueue&, const EventList& events,
                                                              std::int64_t) {
    const MessageContext metrics(picoproto_new("Metrics"));
    writeRepeated(metrics.get(), kCountersField, contextsNamed(events, kCounterMetric));
    writeRepeated(metrics.get(), kTimersField, contextsNamed(events, kTimerMetric));
    return bodyOf(metrics);
}

std::size_t QLSDKOperationalMetricsQueue::recordsThatFit(AnalyticsEventsQueue&, const EventList& events) {
    return countThatFits(events, fieldOf);
}

MessageContext QLSDKOperationalMetricsQueue::_picoprotoTimestampWithTimestamp(double secondsSince1970) {
    return timestampMessage(secondsSince1970);
}

}  // namespace qlsdk
