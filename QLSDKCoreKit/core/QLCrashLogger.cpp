#include "QLSDKCoreKit/core/QLCrashLogger.h"

#include <cstddef>
#include <new>

#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"

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

namespace {

/// Made in place, where nothing can fail, and never destroyed: it may be asked for while the process ends.
class SharedCrashLogger final : public qlsdk::QLBaseCrashLogger {
  public:
    static void* operator new(std::size_t) noexcept {
        alignas(qlsdk::QLBaseCrashLogger) static std::byte storage[sizeof(qlsdk::QLBaseCrashLogger)];
        return storage;
    }
    static void operator delete(void*) noexcept {}
};
static_assert(sizeof(SharedCrashLogger) == sizeof(qlsdk::QLBaseCrashLogger));

}  // namespace

QLCrashLoggerRef QLSharedCrashLogger() {
    static constinit qlsdk::platform::ForkSafeOnce<SharedCrashLogger> shared;
    return &shared.get([] { return SharedCrashLogger(); });
}
