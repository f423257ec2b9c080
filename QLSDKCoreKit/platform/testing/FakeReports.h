#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "QLSDKCoreKit/platform/DiagnosticsSink.h"
#include "QLSDKCoreKit/platform/Log.h"

namespace qlsdk::platform::testing {

/// Keeps every line. Any thread.
class FakeLog final : public Log {
  public:
    void write(std::string_view line) noexcept override {
        const std::lock_guard lock(mutex_);
        lines_.emplace_back(line);
    }
    [[nodiscard]] std::vector<std::string> lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

/// Keeps what it is told. It is told by a task on a serial queue: with manual queues, once those are run. Any
/// thread.
class FakeDiagnostics final : public DiagnosticsSink {
  public:
    [[nodiscard]] bool isListening() const noexcept override { return true; }
    void tell(const Diagnostic& diagnostic) noexcept override {
        const std::lock_guard lock(mutex_);
        told_.push_back(diagnostic);
    }
    [[nodiscard]] std::vector<Diagnostic> told() const {
        const std::lock_guard lock(mutex_);
        return told_;
    }

  private:
    mutable std::mutex mutex_;
    std::vector<Diagnostic> told_;
};

}  // namespace qlsdk::platform::testing
