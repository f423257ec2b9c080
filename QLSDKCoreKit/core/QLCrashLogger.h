#pragma once

#include "QLSDKCoreKit/Export.h"
#include "QLSDKCoreKit/core/QLCrashReporting.h"

namespace qlsdk {

/// What the library asks of a crash logger. Any thread may call; implementations bring their own locking.
class QLSDK_EXPORT QLCrashLogger {
  public:
    virtual ~QLCrashLogger() = default;

    /// Starts the crash-reporting service. `crashDelegate` is an object of that service, which only host and
    /// service know; it may be null and is borrowed. Nothing in this library calls it.
    virtual void startServicesWithCrashDelegate(void* crashDelegate) = 0;

    /// Takes one exception that was handled, not raised. `exception` is valid for the call.
    virtual void logHandledException(const QLHandledException& exception) = 0;
};

/// The default logger: its instance operations do nothing.
class QLSDK_EXPORT QLBaseCrashLogger : public QLCrashLogger {
  public:
    void startServicesWithCrashDelegate(void* crashDelegate) override;
    void logHandledException(const QLHandledException& exception) override;

    /// The class operations. They bear the names of the instance operations, and C++ does not overload a
    /// static member with one that is not, so they stand in a class of their own. Each forwards its argument
    /// to the operation of the same name of `QLSharedCrashLogger()`.
    struct QLSDK_EXPORT Class {
        static void startServicesWithCrashDelegate(void* crashDelegate);
        static void logHandledException(const QLHandledException& exception);

        /// The class in the form that `QLSetHandledExceptionLogger` takes. Lives as long as the process.
        [[nodiscard]] static const QLHandledExceptionLoggerClass& object() noexcept;
    };
};

}  // namespace qlsdk
