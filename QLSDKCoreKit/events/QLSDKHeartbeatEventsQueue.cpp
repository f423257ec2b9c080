#include "QLSDKCoreKit/events/QLSDKHeartbeatEventsQueue.h"

#include <array>
#include <string_view>
#include <utility>

#include "QLSDKCoreKit/control/Consent.h"
#include "QLSDKCoreKit/events/internal/BatchContexts.h"
#include "QLSDKCoreKit/events/internal/EventRecording.h"
#include "QLSDKCoreKit/network/QLPayloadProvider.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"

namespace qlsdk {

namespace {

// On purpose: the avatar kit's name is cut; stored dates of existing installations lie under it.
constexpr std::array<std::string_view, 5> kKitNames = {"", "ACCESS_KIT", "AVATOON_KI", "SHARING_KIT",
                                                       "FEED_KIT"};

constexpr std::uint64_t kHeartbeatsField = 1;

}  // namespace

QLSDKHeartbeatEventsQueue& QLSDKHeartbeatEventsQueue::sharedInstance() {
    // Never destroyed: uploads may still call back while the process ends.
    static constinit platform::ForkSafeOnce<std::shared_ptr<QLSDKHeartbeatEventsQueue>> shared;
    return *shared.get([] {
        std::shared_ptr<QLSDKHeartbeatEventsQueue> instance(new QLSDKHeartbeatEventsQueue);
        instance->_eventsQueue = AnalyticsEventsQueue::create(
            "/v1/sdk/heartbeat", std::make_shared<QLPayloadProvider>(), "qlsdk-heartbeat.plist", 1, instance);
        return instance;
    });
}

QLSDKHeartbeatEventsQueue::QLSDKHeartbeatEventsQueue()
    : _dispatchQueue(platform::current().queues->makeSerialQueue("com.quillo.quill-kit.heartbeat.queue")) {}

void QLSDKHeartbeatEventsQueue::addEvent(const QLSDKHeartbeat& heartbeat) {
    recordEvent("Heartbeat", [&] {
        // A heartbeat that will be dropped must not leave a date, nor make an installation id.
        if (!platform::mayKeep(platform::consent())) return;
        if (!_isTimeForHeartbeatForKitType(heartbeat.kitType())) return;
        std::shared_ptr<EncodablePicoproto> event = heartbeat.encodeablePicoproto();
        if (event == nullptr) return reportLostEvent("Heartbeat", EventLoss::incompleteMessage);
        _eventsQueue->pushEvent(std::move(event));
        const platform::Platform& platform = platform::current();
        if (const auto key = _hearbeatKeyForKitType(heartbeat.kitType())) {
            platform.userDefaults->setObjectForKey(Date{platform.clock->secondsSince1970()}, *key);
        }
    });
}

std::optional<Data> QLSDKHeartbeatEventsQueue::parseEvents(AnalyticsEventsQueue&, const EventList& events,
                                                           std::int64_t) {
    // On purpose: the message's name lacks its second "t"; it is the established one.
    const MessageContext batch(picoproto_new("HearbeatBatch"));
    writeRepeated(batch.get(), kHeartbeatsField, contextsOf(events));
    return bodyOf(batch);
}

std::size_t QLSDKHeartbeatEventsQueue::recordsThatFit(AnalyticsEventsQueue&, const EventList& events) {
    return countThatFits(events, [](const picoproto_ctx_s&) { return kHeartbeatsField; });
}

bool QLSDKHeartbeatEventsQueue::_isTimeForHeartbeatForKitType(QLSDKKitType kitType) {
    const std::optional<std::string> key = _hearbeatKeyForKitType(kitType);
    if (!key) return false;
    const platform::Platform& platform = platform::current();
    const Value last = platform.userDefaults->objectForKey(*key);
    // Something that is no date under the key counts as none.
    if (last.date() == nullptr) return true;
    const double elapsed = platform.clock->secondsSince1970() - last.date()->secondsSince1970;
    if (elapsed < 0) {
        platform::reportDiagnostic(
            {platform::DiagnosticKind::clock,
             "the last heartbeat's date is in the future; there is none until a day after it"});
    }
    return elapsed > _heartbeatEmitPeriod();
}

std::optional<std::string> QLSDKHeartbeatEventsQueue::_hearbeatKeyForKitType(QLSDKKitType kitType) {
    const auto index = wireValue(kitType);
    if (index == 0 || index >= kKitNames.size()) return std::nullopt;
    return "com.quillo.quill-kit.heartbeat." + std::string(kKitNames[static_cast<std::size_t>(index)]);
}

double QLSDKHeartbeatEventsQueue::_heartbeatEmitPeriod() noexcept {
    return 86400.0;
}

}  // namespace qlsdk
