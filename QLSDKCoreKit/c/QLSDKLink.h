#ifndef QLSDKCOREKIT_C_QLSDKLINK_H
#define QLSDKCOREKIT_C_QLSDKLINK_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "QLSDKCoreKit/c/QLSDKText.h"
#include "QLSDKCoreKit/platform/Export.h"

/* Links into the companion app from C. Nothing throws. */

/** What a link says; borrowed for the call. The three objects are JSON texts; NULL leaves them out. */
typedef struct QLSDKLink {
    /** 0 opens the camera, 1 authorises, 2 shows a preview. There is no link for any other. */
    uint64_t feature;
    const char* metadataJson;
    const char* payloadJson;
    const char* additionalQueriesJson;
    /** Adds a fresh client auth token to the metadata. */
    bool withFingerprint;
} QLSDKLink;

/** The link as a text, as QLSDKText.h says. No text for a NULL link, an unknown feature and a JSON text
    that is no object. With a fingerprint each call makes another link, which may be some bytes longer than
   the one before: leave room to spare. Any thread. */
QLSDK_EXTERN_C size_t QLSDKMakeLink(const QLSDKLink* link, char* buffer, size_t capacity);

/** Opens the link later, on the main queue, and tells the outcome there, once; false where `QLSDKMakeLink`
   has no text. The callback may be NULL. Any thread. */
QLSDK_EXTERN_C void QLSDKOpenLink(const QLSDKLink* link, void (*callback)(bool success, void* context),
                                  void* context);

/** True when something on the system opens the companion app's links. On the thread of the main queue. */
QLSDK_EXTERN_C bool QLSDKCanOpenLinks(void);

#endif
