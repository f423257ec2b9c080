#ifndef QLSDKCOREKIT_CORE_QLCRASHREPORTING_H
#define QLSDKCOREKIT_CORE_QLCRASHREPORTING_H

#include "QLSDKCoreKit/Export.h"

/* Reporting of broken expectations. The library never stops its host for one: each becomes an exception
   object that is handed, without being raised, to the crash logger a host may connect. Usable from C. */

/** One report. Both texts are UTF-8, never NULL, and borrowed: valid until the call that passes them returns.
 */
typedef struct QLHandledException {
    const char* name;
    const char* reason;
} QLHandledException;

/** A class that answers the class operation `logHandledException`. It has no instance, so it is written as a
    table; a host that needs state embeds the table at the head of a structure of its own and finds it again
    through `receiver`. */
typedef struct QLHandledExceptionLoggerClass {
    /** Called on the thread of the broken expectation, possibly by several threads at once. `receiver` is the
        table itself. What it throws is swallowed. A NULL operation is a mistake of the host: reports are then
        dropped. */
    void (*logHandledException)(const struct QLHandledExceptionLoggerClass* receiver,
                                const QLHandledException* exception);
} QLHandledExceptionLoggerClass;

/* C sees the shared logger as an opaque object; C++ as the abstract class of QLCrashLogger.h. */
#ifdef __cplusplus
namespace qlsdk {
class QLCrashLogger;
}
typedef qlsdk::QLCrashLogger* QLCrashLoggerRef;
#else
typedef struct QLCrashLogger* QLCrashLoggerRef;
#endif

/** The shared crash logger: one `QLBaseCrashLogger`, made on first use, owned by the library and alive as
   long as the process. Never NULL. Any thread. */
QLSDK_EXTERN_C QLCrashLoggerRef QLSharedCrashLogger(void);

/** Makes `loggerClass` the receiver of all later reports. It is kept as a plain pointer: the table must stay
    alive and unchanged. NULL empties the slot; the next report then installs the default again. Meant to be
    called once at start-up, before any report: one that runs at the same time may reach either class. */
QLSDK_EXTERN_C void QLSetHandledExceptionLogger(const QLHandledExceptionLoggerClass* loggerClass);

/** Reports one failed assertion and returns; nothing is raised and nothing fails. With no class installed,
   the class of `QLBaseCrashLogger`, which does nothing, is installed first. A NULL text is reported as
   "(null)". A report that the logger itself causes while it handles another one reaches it, too, inside that
   call; from the fifth on top of each other on they are dropped, so that a logger cannot call itself without
   end. Any thread. */
QLSDK_EXTERN_C void QLLogAssertAsHandledException(const char* name, const char* reason);

#endif
