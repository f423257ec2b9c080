#ifndef QLSDKCOREKIT_C_INTERNAL_CHOST_TEST_H
#define QLSDKCOREKIT_C_INTERNAL_CHOST_TEST_H

#include "QLSDKCoreKit/c/QLSDK.h"

/** What a small host in C has seen. */
typedef struct CHostReport {
    int started;
    int startedAgain;
    int dryRequests;
    int dryConfigRequests;
    int requestsWithClientId;
    size_t bodyBytes;
    int configAnswers;
    int consentChanges;
    size_t idLength;
    size_t linkLength;
    char link[2048];
    char failure[128];
    int failureTimes;
    QLSDKDeliveryCounts metrics;
    QLSDKDeliveryCounts total;
    QLSDKConsent consent;
} CHostReport;

#ifdef __cplusplus
extern "C"
#endif
    /** Starts the library in `home` with a dry run, uses all of it, refuses consent and reports. */
    void
    cHostLives(const char* home, CHostReport* report);

#endif
