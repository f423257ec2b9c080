#ifndef QLSDKCOREKIT_C_QLSDKCONFIG_H
#define QLSDKCOREKIT_C_QLSDKCONFIG_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "QLSDKCoreKit/c/QLSDKText.h"
#include "QLSDKCoreKit/platform/Export.h"

/* The remote configuration from C. Any thread; nothing throws. */

/** Asks for the configuration to be fetched, which happens at most once per process, and to be told whether
    that succeeded, once, on a queue of the library's own. With a NULL callback nobody is told. */
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

/** Answers as QLSDKText.h says. A NULL default is no text. */
QLSDK_EXTERN_C size_t QLSDKConfigString(const QLSDKConfig* config, const char* const* keys, size_t keyCount,
                                        const char* defaultValue, char* buffer, size_t capacity);

#endif
