/* A host in plain C: asks the probes, receives a report and writes a message. */
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <QLSDKCoreKit/core/QLAppEnvironment.h>
#include <QLSDKCoreKit/core/QLCrashReporting.h>
#include <QLSDKCoreKit/core/QLSDKConstants.h>
#include <QLSDKCoreKit/picoproto/picoproto.h>

static int reports = 0;

static void count(const QLHandledExceptionLoggerClass* receiver, const QLHandledException* exception) {
    (void)receiver;
    if (strcmp(exception->name, "name") == 0 && strcmp(exception->reason, "100%") == 0) ++reports;
}

static int reportArrives(void) {
    static const QLHandledExceptionLoggerClass counter = {count};
    QLSetHandledExceptionLogger(&counter);
    QLLogAssertAsHandledException("name", "100%");
    return QLSharedCrashLogger() != NULL && reports == 1;
}

static int messageIsWritten(void) {
    static const uint8_t expected[] = {0x0a, 0x02, 'h', 'i', 0x10, 0x96, 0x01};
    picoproto_ctx_s* message = picoproto_new("Greeting");
    int written = picoproto_write_string_field(message, 1, "hi") == 0 &&
                  picoproto_write_varint_field(message, 2, 150) == 0 && message->length == sizeof expected &&
                  memcmp(message->buffer, expected, sizeof expected) == 0;
    picoproto_free(message);
    return written;
}

int main(void) {
    static const char inHost = 0;
    const char* library = QLKitVersionForClass(kQLSDKErrorDomain);
    const char* function = QLKitVersionForClass((const void*)(uintptr_t)&picoproto_new);
    const char* host = QLKitVersionForClass(&inHost);
    printf("%s, %s, debugger: %d\n", QLArchitecture(), QLLocale(), QLIsRunningWithDebugger());
    printf("library: %s, host: %s\n", library != NULL ? library : "none", host != NULL ? host : "none");
    return reportArrives() && messageIsWritten() && QLSDKCoreKitVersionNumber >= 1 && library == function ? 0
                                                                                                          : 1;
}
