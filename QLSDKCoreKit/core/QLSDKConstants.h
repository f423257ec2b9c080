#ifndef QLSDKCOREKIT_CORE_QLSDKCONSTANTS_H
#define QLSDKCOREKIT_CORE_QLSDKCONSTANTS_H

#include <stdint.h>

#include "QLSDKCoreKit/Export.h"

/* The exported constants of the core. Usable from C; all of them live as long as the process. */

/** Domain of the errors this library makes. Equal text alone does not make an error one of ours: see
    `statusCode` in QLSDKError.h. */
QLSDK_EXTERN_C const char* const kQLSDKErrorDomain;

/** What a feature kit reports as the cause when the service has ended the user's session. */
QLSDK_EXTERN_C const char* const kQLOAuth2ClientLogoutError;

/** The status of an error that carries none. */
QLSDK_EXTERN_C const int64_t kQLSDKNSErrorStatusCodeUnknown;

/** Major and minor version as a number, for comparisons. */
QLSDK_EXTERN_C const double QLSDKCoreKitVersionNumber;

/** The full version in the form that version-listing tools search binaries for; ends with a line feed and
 * NUL. */
QLSDK_EXTERN_C const unsigned char QLSDKCoreKitVersionString[];

#endif
