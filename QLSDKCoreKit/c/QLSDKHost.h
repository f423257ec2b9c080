#ifndef QLSDKCOREKIT_C_QLSDKHOST_H
#define QLSDKCOREKIT_C_QLSDKHOST_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "QLSDKCoreKit/c/QLSDKText.h"
#include "QLSDKCoreKit/platform/Export.h"

/* A host in C: start, the main queue, and what the host decides. All functions may be called from any thread
   and none throws. Without `QLSDKStart` the first call of any starts the library with its defaults.

   `context` pointers are passed on untouched and never looked at; they must live until the callback has been
   called, or for ever where it may be called again. */

/** What the host's user says to the library's requests; see platform/HostControls.h for all that follows. Any
    other value counts as a refusal. */
typedef int32_t QLSDKConsent;
enum { QLSDKConsentGranted = 0, QLSDKConsentUndecided = 1, QLSDKConsentRefused = 2 };

typedef struct QLSDKHeader {
    const char* name;
    const char* value;
} QLSDKHeader;

/** One request that a dry run did not send. Everything in it is borrowed for the call. */
typedef struct QLSDKRequest {
    const char* method;
    const char* url;
    const QLSDKHeader* headers;
    size_t headerCount;
    /** NULL when the request has no body; an empty one is not NULL. */
    const uint8_t* body;
    size_t bodySize;
} QLSDKRequest;

/** Called on a queue of the library's own, one request at a time. */
typedef void (*QLSDKDryRunSink)(const QLSDKRequest* request, void* context);

typedef struct QLSDKInfoEntry {
    const char* key;
    const char* value;
} QLSDKInfoEntry;

/** How the library starts. All zero is the default; write `QLSDKStartOptions options = {0};`. Texts are
 * copied. */
typedef struct QLSDKStartOptions {
    /** Path of the property list. NULL takes the one beside the program. */
    const char* infoPlistPath;
    /** Texts of the property list itself, such as "CFBundleIdentifier" and "QLSDKClientId", in place of any
        file. NULL, or a count of 0, reads a file. Entries with a NULL key or value are left out. */
    const QLSDKInfoEntry* info;
    size_t infoCount;
    /** Directory to keep all state below. NULL takes the user's own directories. */
    const char* homeDirectory;
    /** "HOST:PORT" to connect to in place of the web service's own, and a PEM file of the authorities to
        trust in place of the system's; for staging servers and tests. NULL each for neither. */
    const char* connectTo;
    const char* caFile;
    QLSDKConsent consent;
    /** When not NULL, requests go to this function in place of the network and count as answered with 200. */
    QLSDKDryRunSink dryRun;
    void* dryRunContext;
    /** The longest delay that a server can put before a retry; 0 and less: as long as it says. */
    int64_t longestRetryDelayMillis;
} QLSDKStartOptions;

typedef enum QLSDKStartResult {
    QLSDKStarted = 0,
    /** The library has been used before; the options have no effect. */
    QLSDKStartedBefore = 1,
    /** Memory ran out. */
    QLSDKStartFailed = 2
} QLSDKStartResult;

/** Starts the library: reads the property list and queues the configuration update on the main queue. To be
    called once, before everything else. NULL takes the defaults. */
QLSDK_EXTERN_C QLSDKStartResult QLSDKStart(const QLSDKStartOptions* options);

/** Blocks until the library has nothing more to do, or for that many milliseconds (less than 0 counts as 0,
   more than a day as a day); true when it is idle. What waits on the main queue does not count. Not to be
   called from a callback. */
QLSDK_EXTERN_C bool QLSDKWaitUntilIdle(int64_t timeoutMillis);

/** Readable while tasks wait on the main queue. For poll and its kind; never read or close it. -1 without
 * one. */
QLSDK_EXTERN_C int QLSDKMainQueueFileDescriptor(void);

/** Runs the tasks that wait on the main queue and returns how many. One thread at a time. */
QLSDK_EXTERN_C size_t QLSDKMainQueueDrain(void);

/** Gives the main queue a thread of its own, for a host that does not want to drain it. */
QLSDK_EXTERN_C void QLSDKMainQueueStartThread(void);

/** What holds now; a refusal when memory ran out. */
QLSDK_EXTERN_C QLSDKConsent QLSDKGetConsent(void);

/** Changes what holds. `done`, which may be NULL, is called once on a queue of the library's own when the
    change has been carried out: after a refusal, when everything is cancelled and deleted. */
QLSDK_EXTERN_C void QLSDKSetConsent(QLSDKConsent consent, void (*done)(void* context), void* context);

/** What became of the records of upload queues; platform/DeliveryCounters.h defines each number. */
typedef struct QLSDKDeliveryCounts {
    uint64_t accepted;
    uint64_t retried;
    uint64_t droppedAfterRetry;
    uint64_t refusedByServer;
    uint64_t filtered;
    uint64_t lostToFailedWrite;
    uint64_t discarded;
} QLSDKDeliveryCounts;

/** Writes the counts of the queue with that archive name or endpoint, or of all together for NULL. False, and
    zeros, when there is no such queue. With NULL for `counts` it only says whether there is. */
QLSDK_EXTERN_C bool QLSDKReadDeliveryCounts(const char* archiveOrEndpoint, QLSDKDeliveryCounts* counts);

/** The identifier of this installation, made and stored when it is first asked for. Reads the keychain on the
    calling thread. No text when the store holds something else. */
QLSDK_EXTERN_C size_t QLSDKInstallationId(char* buffer, size_t capacity);

#endif
