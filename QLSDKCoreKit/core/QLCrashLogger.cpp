#include "QLSDKCoreKit/core/QLCrashLogger.h"

#include <cstddef>
#include <new>

namespace qlsdk {

void QLBaseCrashLogger::startServicesWithCrashDelegate(void*) {}
void QLBaseCrashLogger::logHandledException(const QLHandledException&) {}

void QLBaseCrashLogger::Class::startServicesWithCrashDelegate(void* crashDelegate) {
    QLSharedCrashLogger()->startServicesWithCrashDelegate(crashDelegate);
}

void QLBaseCrashLogger::Class::logHandledException(const QLHandledException& exception) {
    QLSharedCrashLogger()->logHandledException(exception);
}

const QLHandledExceptionLoggerClass& QLBaseCrashLogger::Class::object() noexcept {
    static constexpr QLHandledExceptionLoggerClass kObject{
        [](const QLHandledExceptionLoggerClass*, const QLHandledException* exception) {
            logHandledException(*exception);
        }};
    return kObject;
}

}  // namespace qlsdk

QLCrashLoggerRef QLSharedCrashLogger() {
    // Made in place, where nothing can fail, and never destroyed: it may be asked for while the process ends.
    alignas(qlsdk::QLBaseCrashLogger) static std::byte storage[sizeof(qlsdk::QLBaseCrashLogger)];
    static qlsdk::QLCrashLogger* const shared = ::new (static_cast<void*>(storage)) qlsdk::QLBaseCrashLogger;
    return shared;
}
