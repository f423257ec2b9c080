/* Compiled as C11: a small host in C, from its start to its end. The C++ test beside it says what it has to
 * see. */

#include <poll.h>
#include <stdio.h>
#include <string.h>

#include "QLSDKCoreKit/c/QLSDK.h"
#include "QLSDKCoreKit/c/internal/CHost_test.h"

static void takeRequest(const QLSDKRequest* request, void* context) {
    CHostReport* report = context;
    size_t i;
    ++report->dryRequests;
    if (strcmp(request->method, "POST") != 0 || request->body == NULL) return;
    if (strstr(request->url, "/v1/config") != NULL) ++report->dryConfigRequests;
    if (strstr(request->url, "/metrics/") != NULL) report->bodyBytes += request->bodySize;
    for (i = 0; i < request->headerCount; ++i) {
        if (strcmp(request->headers[i].name, "X-Quill-SDK-OAuth-Client-Id") == 0 &&
            strcmp(request->headers[i].value, "c-client") == 0)
            ++report->requestsWithClientId;
    }
}

static void configAnswered(bool success, void* context) {
    CHostReport* report = context;
    report->configAnswers += success ? 100 : 1;
}

static void consentChanged(void* context) {
    CHostReport* report = context;
    ++report->consentChanges;
}

static void hear(const QLSDKDiagnostic* diagnostic, void* context) {
    CHostReport* report = context;
    if (diagnostic->kind != QLSDKDiagnosticFailedWrite) return;
    report->failureTimes = (int)diagnostic->times;
    (void)snprintf(report->failure, sizeof report->failure, "%d %s %d %s %s", (int)diagnostic->kind,
                   diagnostic->cause, (int)diagnostic->errorNumber, diagnostic->path, diagnostic->detail);
}

void cHostLives(const char* home, CHostReport* report) {
    const QLSDKInfoEntry info[] = {{"CFBundleIdentifier", "com.example.chost"},
                                   {"CFBundleVersion", "3.0"},
                                   {"QLSDKClientId", "c-client"},
                                   {NULL, "left out"}};
    QLSDKStartOptions options = {.size = sizeof options};
    QLSDKLink link = {.size = sizeof link};
    struct pollfd tasks = {0};
    char identifier[64];

    options.info = info;
    options.infoCount = sizeof info / sizeof info[0];
    options.homeDirectory = home;
    options.dryRun = takeRequest;
    options.dryRunContext = report;
    options.longestRetryDelayMillis = 60000;
    options.diagnostics = hear;
    options.diagnosticsContext = report;
    options.durability = QLSDKDurabilityPowerCut;
    report->started = (int)QLSDKStart(&options);
    report->startedAgain = (int)QLSDKStart(NULL);

    QLSDKUpdateConfig(configAnswered, report);
    tasks.fd = QLSDKMainQueueFileDescriptor();
    tasks.events = POLLIN;
    if (poll(&tasks, 1, 0) == 1) QLSDKMainQueueDrain();

    QLSDKAddHeartbeat(3, "1.0");
    QLSDKAddHeartbeat(3, "1.0");
    QLSDKAddCount(1, "started");
    QLSDKAddLatency(250, "start");
    QLSDKFlush();
    (void)QLSDKWaitUntilIdle(60000);

    report->idLength = QLSDKInstallationId(identifier, sizeof identifier);
    link.feature = 1;
    link.metadataJson = "{\"a\":1}";
    report->linkLength = QLSDKMakeLink(&link, report->link, sizeof report->link);

    QLSDKSetConsent(QLSDKConsentRefused, consentChanged, report);
    QLSDKAddCount(1, "dropped");
    (void)QLSDKWaitUntilIdle(60000);
    report->consent = QLSDKGetConsent();
    report->metrics.size = sizeof report->metrics;
    report->total.size = sizeof report->total;
    (void)QLSDKReadDeliveryCounts("/v1/sdk/metrics/operational", &report->metrics);
    (void)QLSDKReadDeliveryCounts(NULL, &report->total);
}
