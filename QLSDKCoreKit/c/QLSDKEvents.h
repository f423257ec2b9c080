#ifndef QLSDKCOREKIT_C_QLSDKEVENTS_H
#define QLSDKCOREKIT_C_QLSDKEVENTS_H

#include <stdint.h>

#include "QLSDKCoreKit/platform/Export.h"

/* Heartbeats and metrics from C. Any thread; no call fails, throws or waits for the network. */

/** A feature kit (1 access, 2 avatar, 3 sharing, 4 feed) is alive: sent at most once in 24 hours for each. A
    NULL version is sent as an empty text; nothing is sent for other kit types. */
QLSDK_EXTERN_C void QLSDKAddHeartbeat(int32_t kitType, const char* kitVersion);

/** Something happened `count` times. With a NULL name nothing is recorded. */
QLSDK_EXTERN_C void QLSDKAddCount(int64_t count, const char* name);

/** Something took that long. With a NULL name nothing is recorded. */
QLSDK_EXTERN_C void QLSDKAddLatency(int64_t latencyMillis, const char* name);

/** Sends what the queues of this process hold without waiting for more; for a host about to become inactive.
 */
QLSDK_EXTERN_C void QLSDKFlush(void);

#endif
