#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "QLSDKCoreKit/core/QLCrashReporting.h"

namespace qlsdk::testing {

/// Installs itself as the handled-exception logger and keeps every report as "name: reason". Declare it
/// static where reports may come after the test: the slot does not own it.
class RecordingLogger {
  public:
    RecordingLogger() { QLSetHandledExceptionLogger(&table_.loggerClass); }
    ~RecordingLogger() { QLSetHandledExceptionLogger(nullptr); }
    RecordingLogger(const RecordingLogger&) = delete;
    RecordingLogger& operator=(const RecordingLogger&) = delete;

    /// Runs after each report has been kept, inside the logger's call.
    std::function<void()> onReport;

    [[nodiscard]] std::vector<std::string> reports() const {
        const std::lock_guard lock(mutex_);
        return reports_;
    }

  private:
    struct Table {
        QLHandledExceptionLoggerClass loggerClass;
        RecordingLogger* owner;
    };

    static void record(const QLHandledExceptionLoggerClass* receiver, const QLHandledException* exception) {
        RecordingLogger& self = *reinterpret_cast<const Table*>(receiver)->owner;
        {
            const std::lock_guard lock(self.mutex_);
            self.reports_.push_back(std::string(exception->name) + ": " + exception->reason);
        }
        if (self.onReport) self.onReport();
    }

    Table table_{{record}, this};
    mutable std::mutex mutex_;
    std::vector<std::string> reports_;
};

}  // namespace qlsdk::testing
