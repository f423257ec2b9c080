#ifndef QLSDKCOREKIT_CORE_QLAPPENVIRONMENT_H
#define QLSDKCOREKIT_CORE_QLAPPENVIRONMENT_H

#include <stdbool.h>

#include "QLSDKCoreKit/Export.h"

/* Questions about the process and the device. Usable from C; any thread. Texts belong to the library, live as
   long as the process and are UTF-8; NULL says that there is no such text. */

/** True in a process that a test harness runs in: the environment has "XCInjectBundle" or
   "XCInjectBundleInto", even empty, or a class "XCTestCase" is loaded: a C++ class with virtual functions or
   a symbol of that name, in the program or a shared object, exported or not (stripping takes the latter
   away). Found out once per process. */
QLSDK_EXTERN_C bool QLIsRunningTests(void);

/** True when the main bundle's path ends in ".appex" (case matters). Found out once per process. */
QLSDK_EXTERN_C bool QLIsRunningExtension(void);

/** True while a debugger traces the process; asked anew at each call. The library changes nothing because of
    the answer. When the kernel cannot be asked at all, the process is aborted after one line in the log and
   on the standard error: the only deliberately fatal check of the library. Where memory is too short to ask,
   false. */
QLSDK_EXTERN_C bool QLIsRunningWithDebugger(void);

/** Always false; kept so that the field it fills in the heartbeat keeps its place. */
QLSDK_EXTERN_C bool QLIsAppStoreReceiptSandbox(void);

/** One of "x86", "x86_64", "ARM", "ARMV6", "ARMV7", "ARMV8" and "Unknown". A 64-bit ARM processor is
 * "Unknown". */
QLSDK_EXTERN_C const char* QLArchitecture(void);

/** Language and country of the current locale, such as "en-US"; a missing one reads "(null)". */
QLSDK_EXTERN_C const char* QLLocale(void);

/** The version ("CFBundleVersion") of the bundle that contains `addressInKit`: any function or object of the
    kit that asks. Code linked into the program, and NULL, read the host application's own. The library's own
    functions and constants declared for C read the library's, also when it is linked into the program. NULL
    without one. */
QLSDK_EXTERN_C const char* QLKitVersionForClass(const void* addressInKit);

#endif
