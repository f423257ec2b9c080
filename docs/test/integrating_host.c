/* The C of docs/integrating.md: a host that asks its user. */

#include <poll.h>
#include <stdlib.h>

#include <QLSDKCoreKit/c/QLSDK.h>

int integratingHostInC(const char* home);

static int requests = 0;

static void show(const QLSDKRequest* request, void* context) {
    (void)context;
    if (request->bodySize > 0) ++requests;
}

int integratingHostInC(const char* home) {
    const QLSDKInfoEntry info[] = {{"CFBundleIdentifier", "com.example.chost"}, {"QLSDKClientId", "abc"}};
    QLSDKStartOptions options = {.size = sizeof options};
    options.info = info;
    options.infoCount = 2;
    options.homeDirectory = home;
    options.consent = QLSDKConsentUndecided;
    options.dryRun = show;
    if (QLSDKStart(&options) != QLSDKStarted) return EXIT_FAILURE;

    QLSDKAddHeartbeat(3, "1.0");
    QLSDKAddCount(1, "app.started");
    QLSDKSetConsent(QLSDKConsentGranted, NULL, NULL);

    struct pollfd tasks = {QLSDKMainQueueFileDescriptor(), POLLIN, 0};
    if (poll(&tasks, 1, 1000) == 1) QLSDKMainQueueDrain();

    QLSDKLink link = {.size = sizeof link};
    link.feature = 2;
    link.payloadJson = "{\"story\":\"a\"}";
    char text[2048];
    if (QLSDKMakeLink(&link, text, sizeof text) >= sizeof text) return EXIT_FAILURE;

    QLSDKFlush();
    if (!QLSDKWaitUntilIdle(5000)) return EXIT_FAILURE;
    QLSDKDeliveryCounts counts = {.size = sizeof counts};
    QLSDKReadDeliveryCounts(NULL, &counts);
    return counts.accepted == 2 ? EXIT_SUCCESS : EXIT_FAILURE;
}
