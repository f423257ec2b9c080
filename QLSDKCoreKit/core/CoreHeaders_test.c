/* Compiled as C11: the headers promise to be usable from C, and this file is the C program that uses them. */

#include <stddef.h>
#include <string.h>

#include "QLSDKCoreKit/core/QLAppEnvironment.h"
#include "QLSDKCoreKit/core/QLCrashReporting.h"
#include "QLSDKCoreKit/core/QLSDKConstants.h"

/* Called by the C++ tests, which say what the answers have to be. */
const char* cArchitecture(void);
const char* cLocale(void);
const char* cKitVersion(void);
int cProbes(void);
int cConstantsHaveTheirValues(void);
int cLoggerCollectsReports(void);

struct CountingLogger {
    QLHandledExceptionLoggerClass loggerClass;
    int reports;
    int nullTexts;
};

static void count(const QLHandledExceptionLoggerClass* receiver, const QLHandledException* exception) {
    struct CountingLogger* logger = (struct CountingLogger*)receiver;
    ++logger->reports;
    if (strcmp(exception->name, "(null)") == 0 && strcmp(exception->reason, "(null)") == 0)
        ++logger->nullTexts;
}

const char* cArchitecture(void) {
    return QLArchitecture();
}
const char* cLocale(void) {
    return QLLocale();
}
const char* cKitVersion(void) {
    return QLKitVersionForClass(&kQLSDKErrorDomain);
}

int cProbes(void) {
    return (QLIsRunningTests() ? 1 : 0) + (QLIsRunningExtension() ? 2 : 0) +
           (QLIsRunningWithDebugger() ? 4 : 0) + (QLIsAppStoreReceiptSandbox() ? 8 : 0);
}

int cConstantsHaveTheirValues(void) {
    return strcmp(kQLSDKErrorDomain, "QLSDKErrorDomain") == 0 &&
           strcmp(kQLOAuth2ClientLogoutError, "Force logged out") == 0 &&
           kQLSDKNSErrorStatusCodeUnknown == 0 && QLSDKCoreKitVersionNumber == 1.3 &&
           strcmp((const char*)QLSDKCoreKitVersionString,
                  "@(#)PROGRAM:QLSDKCoreKit  PROJECT:QLSDKCoreKit-1.3.4\n") == 0 &&
           QLSDK_VERSION == 10304 && strcmp(QLSDK_VERSION_TEXT, "1.3.4") == 0;
}

int cLoggerCollectsReports(void) {
    static struct CountingLogger logger = {{count}, 0, 0};
    QLSetHandledExceptionLogger(&logger.loggerClass);
    QLLogAssertAsHandledException("name", "reason");
    QLLogAssertAsHandledException(NULL, NULL);
    QLSetHandledExceptionLogger(NULL);
    QLLogAssertAsHandledException("name", "goes to the default class");
    return QLSharedCrashLogger() != NULL && logger.reports == 2 && logger.nullTexts == 1;
}
