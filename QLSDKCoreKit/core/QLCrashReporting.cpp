#include "QLSDKCoreKit/core/QLCrashReporting.h"

#include <atomic>

#include "QLSDKCoreKit/core/QLCrashLogger.h"

namespace {

std::atomic<const QLHandledExceptionLoggerClass*> theLoggerClass{nullptr};
/// A logger that asks the kit for something may meet a broken expectation there, which is worth a report of
/// its own; one that causes a report with each of its own must come to an end.
constexpr int kDeepestReport = 4;
thread_local int theDepth = 0;

const QLHandledExceptionLoggerClass* installedLoggerClass() {
    const QLHandledExceptionLoggerClass* installed = nullptr;
    const QLHandledExceptionLoggerClass* base = &qlsdk::QLBaseCrashLogger::Class::object();
    // The slot stays filled from here on; a class that another thread installs meanwhile wins.
    return theLoggerClass.compare_exchange_strong(installed, base, std::memory_order_acq_rel) ? base
                                                                                              : installed;
}

const char* textOrNull(const char* text) {
    return text != nullptr ? text : "(null)";
}

}  // namespace

void QLSetHandledExceptionLogger(const QLHandledExceptionLoggerClass* loggerClass) {
    theLoggerClass.store(loggerClass, std::memory_order_release);
}

void QLLogAssertAsHandledException(const char* name, const char* reason) {
    if (theDepth == kDeepestReport) return;
    const QLHandledException exception{textOrNull(name), textOrNull(reason)};
    const QLHandledExceptionLoggerClass* loggerClass = installedLoggerClass();
    if (loggerClass->logHandledException == nullptr) return;
    ++theDepth;
    try {
        loggerClass->logHandledException(loggerClass, &exception);
    } catch (...) {
        // The logger's failure must not become the failure of the code that only wanted to report one.
    }
    --theDepth;
}
