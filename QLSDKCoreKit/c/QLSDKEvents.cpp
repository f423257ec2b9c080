#include "QLSDKCoreKit/c/QLSDK.h"
#include "QLSDKCoreKit/c/internal/Facade.h"
#include "QLSDKCoreKit/control/ConsentGate.h"
#include "QLSDKCoreKit/events/QLSDKHeartbeatEventsQueue.h"
#include "QLSDKCoreKit/events/QLSDKOperationalMetricsQueue.h"

using qlsdk::runSwallowing;

void QLSDKAddHeartbeat(int32_t kitType, const char* kitVersion) {
    runSwallowing([=] {
        qlsdk::QLSDKHeartbeatEventsQueue::sharedInstance().addEvent(
            {static_cast<qlsdk::QLSDKKitType>(kitType), qlsdk::textOrAbsent(kitVersion)});
    });
}

void QLSDKAddCount(int64_t count, const char* name) {
    if (name == nullptr) return;
    runSwallowing([=] { qlsdk::QLSDKOperationalMetricsQueue::sharedInstance().addCount(count, name); });
}

void QLSDKAddLatency(int64_t latencyMillis, const char* name) {
    if (name == nullptr) return;
    runSwallowing(
        [=] { qlsdk::QLSDKOperationalMetricsQueue::sharedInstance().addLatency(latencyMillis, name); });
}

void QLSDKFlush() {
    runSwallowing([] { qlsdk::platform::consentGate().flush(); });
}
