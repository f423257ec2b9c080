#ifndef QLSDKCOREKIT_C_QLSDK_H
#define QLSDKCOREKIT_C_QLSDK_H

/* The library for hosts in C, and for languages that call C: text, what failed, the host, events, the remote
   configuration, links. Every pointer may be NULL; each function says what comes of it. */

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/core/QLAppEnvironment.h"
#include "QLSDKCoreKit/core/QLCrashReporting.h"
#include "QLSDKCoreKit/core/QLSDKConstants.h"

/* How these functions take and give text. All text is UTF-8 and ends in NUL; what is passed in
   is borrowed for the call.

   A text that is answered goes into the caller's buffer of `capacity` bytes, and the function returns its
   length without the NUL. It is there exactly if that length is less than `capacity`; it is never cut. A
   buffer that is too small gets an empty text. NULL with a capacity of 0 only asks for the length. */

/* Structures that may grow begin with their size, which whoever makes one sets: in C
   `QLSDKLink link = {.size = sizeof link};`. So a host and a library of different versions understand each
   other: each reads the members that both know, and takes zero for those that the other does not have. A size
   that no version has, a forgotten one for example, is refused, as the functions say. */

/** Returned in place of a length when there is no such text, which is not the same as an empty one. The
    buffer gets an empty text. */
#define QLSDK_NO_TEXT ((size_t)-1)

/** What kind of thing failed; platform/Diagnostics.h defines each, docs/troubleshooting.md has the remedies.
   New ones may be added at the end. */
typedef int32_t QLSDKDiagnosticKind;
enum {
    QLSDKDiagnosticRequestFailed = 1,
    QLSDKDiagnosticCertificate = 2,
    QLSDKDiagnosticInvalidOption = 3,
    QLSDKDiagnosticStateDirectory = 4,
    QLSDKDiagnosticPropertyList = 5,
    QLSDKDiagnosticUnreadableFile = 6,
    QLSDKDiagnosticDamagedFile = 7,
    QLSDKDiagnosticFailedWrite = 8,
    QLSDKDiagnosticRecords = 9,
    QLSDKDiagnosticClock = 10,
    QLSDKDiagnosticKeychain = 11,
    QLSDKDiagnosticResources = 12,
    QLSDKDiagnosticHostCallback = 13,
    QLSDKDiagnosticServerAnswer = 14,
    QLSDKDiagnosticRandom = 15,
    QLSDKDiagnosticDevelopmentKey = 16
};

/** One thing that failed. Everything in it is borrowed for the call; no text is NULL. */
typedef struct QLSDKDiagnostic {
    size_t size;
    QLSDKDiagnosticKind kind;
    /** Why, in fixed words. Together with the kind, the errno and the path it identifies the failure. */
    const char* cause;
    /** The system's error number, 0 where there is none. */
    int32_t errorNumber;
    /** The file or directory concerned, empty where there is none. Not necessarily UTF-8. */
    const char* path;
    /** The words of the library or parser that complained, as they were the first time; may be empty. */
    const char* detail;
    /** How often it has happened in this process. */
    uint64_t times;
} QLSDKDiagnostic;

typedef void (*QLSDKDiagnosticsCallback)(const QLSDKDiagnostic* diagnostic, void* context);

/** Calls `callback`, on the calling thread, for all that has failed in this process until now, oldest first,
   and returns how many there are. NULL only counts. Does not start the library. Memory that ran out: 0. */
QLSDK_EXTERN_C size_t QLSDKReadDiagnostics(QLSDKDiagnosticsCallback callback, void* context);

/* A host in C: start, the main queue, and what the host decides. All functions may be called from any thread
   and none throws. Without `QLSDKStart` the first call of any starts the library with its defaults.

   `context` pointers are passed on untouched and never looked at; they must live until the callback has been
   called, or for ever where it may be called again. */

/** What the host's user says to the library's requests; see platform/HostControls.h for all that follows. Any
    other value counts as a refusal. */
typedef int32_t QLSDKConsent;
enum { QLSDKConsentGranted = 0, QLSDKConsentUndecided = 1, QLSDKConsentRefused = 2 };

/** Never grows, as it stands in arrays; nor does `QLSDKInfoEntry`. */
typedef struct QLSDKHeader {
    const char* name;
    const char* value;
} QLSDKHeader;

/** One request that a dry run did not send. Everything in it is borrowed for the call. */
typedef struct QLSDKRequest {
    size_t size;
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

/** What the events that wait on disk outlive; see control/Durability.h. Any other value is the first. */
typedef int32_t QLSDKDurability;
enum { QLSDKDurabilityProcessEnd = 0, QLSDKDurabilityPowerCut = 1 };

/** How the library starts. All zero behind the size is the default. Texts are copied. */
typedef struct QLSDKStartOptions {
    size_t size;
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
    /** When not NULL, hears of failures: on a queue of the library's own, once for each, one at a time. It
       may call the library. How often each was met says `QLSDKReadDiagnostics`. */
    QLSDKDiagnosticsCallback diagnostics;
    void* diagnosticsContext;
    QLSDKDurability durability;
} QLSDKStartOptions;

typedef enum QLSDKStartResult {
    QLSDKStarted = 0,
    /** The library has been used before; the options have no effect. */
    QLSDKStartedBefore = 1,
    /** Memory ran out. */
    QLSDKStartFailed = 2,
    /** The options' size is not that of any version. Nothing is started: a host's refusal of consent may
       stand in what cannot be read. */
    QLSDKStartInvalid = 3
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
    change has been carried out: after a refusal, when everything is cancelled and deleted. A refusal holds
    when this returns, also when memory ran out; without memory for a task `done` is called inside this call,
    and what could not be deleted is deleted by the next one. A grant that finds no memory to start the
    library changes nothing. */
QLSDK_EXTERN_C void QLSDKSetConsent(QLSDKConsent consent, void (*done)(void* context), void* context);

/** What became of the records of upload queues; control/DeliveryCounters.h defines each number. */
typedef struct QLSDKDeliveryCounts {
    size_t size;
    uint64_t accepted;
    uint64_t retried;
    uint64_t droppedAfterRetry;
    uint64_t refusedByServer;
    uint64_t filtered;
    uint64_t lostToFailedWrite;
    uint64_t discarded;
    uint64_t heldBack;
} QLSDKDeliveryCounts;

/** Writes the counts of the queue with that archive name or endpoint, or of all together for NULL. False, and
    zeros, when there is no such queue. With NULL for `counts` it only says whether there is. Nothing is
   written, and the answer is false, when the size of `counts` is not that of any version. */
QLSDK_EXTERN_C bool QLSDKReadDeliveryCounts(const char* archiveOrEndpoint, QLSDKDeliveryCounts* counts);

/** The identifier of this installation, made and stored when it is first asked for. Reads the keychain on the
    calling thread. No text when the store holds something else. */
QLSDK_EXTERN_C size_t QLSDKInstallationId(char* buffer, size_t capacity);

/* Heartbeats and metrics from C. Any thread; no call fails, throws or waits for the network. */

/** A feature kit (1 access, 2 avatar, 3 sharing, 4 feed) is alive: sent at most once in 24 hours for each. A
    NULL version is sent as an empty text; nothing is sent for other kit types. */
QLSDK_EXTERN_C void QLSDKAddHeartbeat(int32_t kitType, const char* kitVersion);

/** Something happened `count` times. With a NULL name nothing is recorded. */
QLSDK_EXTERN_C void QLSDKAddCount(int64_t count, const char* name);

/** Something took that long. With a NULL name nothing is recorded. */
QLSDK_EXTERN_C void QLSDKAddLatency(int64_t latencyMillis, const char* name);

/** Sends what the upload queues of this process hold without waiting for more; for a host about to become
    inactive. The library's own queues and those of kits; observers of notifications hear nothing of it. */
QLSDK_EXTERN_C void QLSDKFlush(void);

/* The remote configuration from C. Any thread; nothing throws. */

/** Asks for the configuration to be fetched, which happens at most once per process, and to be told whether
    that succeeded, once, on a queue of the library's own; without the memory for it false, perhaps on the
   calling thread or with the next call. With a NULL callback nobody is told. */
QLSDK_EXTERN_C void QLSDKUpdateConfig(void (*callback)(bool success, void* context), void* context);

/** One named piece of the configuration. Immutable. */
typedef struct QLSDKConfig QLSDKConfig;

/** The stored piece called `name`, or NULL; to be given back with `QLSDKReleaseConfig`. Reads the file on the
    calling thread and removes it: the first call after a fetch consumes all of it, whatever it asks for. NULL
    for a NULL name, which consumes nothing. */
QLSDK_EXTERN_C QLSDKConfig* QLSDKTakeConfig(const char* name);

/** NULL is ignored. */
QLSDK_EXTERN_C void QLSDKReleaseConfig(QLSDKConfig* config);

/* The value that a path of keys leads to, from the top of the piece down. The default is answered when it
   leads to nothing, when the value is of another kind, for no keys, and for a NULL piece, path or key.
   Numbers are true unless they are zero; a fraction is cut where a whole number is asked for. */

QLSDK_EXTERN_C bool QLSDKConfigBool(const QLSDKConfig* config, const char* const* keys, size_t keyCount,
                                    bool defaultValue);
QLSDK_EXTERN_C int64_t QLSDKConfigLong(const QLSDKConfig* config, const char* const* keys, size_t keyCount,
                                       int64_t defaultValue);
QLSDK_EXTERN_C double QLSDKConfigDouble(const QLSDKConfig* config, const char* const* keys, size_t keyCount,
                                        double defaultValue);

/** Answers as said at the top. A NULL default is no text. */
QLSDK_EXTERN_C size_t QLSDKConfigString(const QLSDKConfig* config, const char* const* keys, size_t keyCount,
                                        const char* defaultValue, char* buffer, size_t capacity);

/* Links into the companion app from C. Nothing throws. */

/** What a link says; borrowed for the call. The three objects are JSON texts; NULL leaves them out. */
typedef struct QLSDKLink {
    size_t size;
    /** 0 opens the camera, 1 authorises, 2 shows a preview. There is no link for any other. */
    uint64_t feature;
    const char* metadataJson;
    const char* payloadJson;
    const char* additionalQueriesJson;
    /** Adds a fresh client auth token to the metadata. */
    bool withFingerprint;
} QLSDKLink;

/** The link as a text, as said at the top. No text for a NULL link, one without a size, an unknown feature
    and a JSON text that is no object. With a fingerprint each call makes another link, which may be some
   bytes longer than the one before: leave room to spare. Any thread. */
QLSDK_EXTERN_C size_t QLSDKMakeLink(const QLSDKLink* link, char* buffer, size_t capacity);

/** Opens the link later, on the main queue, and tells the outcome there, once; false where `QLSDKMakeLink`
   has no text. Without the memory for it the callback hears false at once, on the calling thread. It may be
   NULL. Any thread. */
QLSDK_EXTERN_C void QLSDKOpenLink(const QLSDKLink* link, void (*callback)(bool success, void* context),
                                  void* context);

/** True when something on the system opens the companion app's links. On the thread of the main queue. */
QLSDK_EXTERN_C bool QLSDKCanOpenLinks(void);

#endif
