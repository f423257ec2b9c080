#include <cstdlib>
#include <string_view>

#include <unistd.h>

#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"

namespace qlsdk::platform {

namespace {

/// One line for each failure, for a host that the environment asks it of.
class StderrDiagnostics final : public DiagnosticsSink {
  public:
    [[nodiscard]] bool isListening() const noexcept override { return isWanted_; }

    void tell(const Diagnostic& diagnostic) noexcept override {
        try {
            const std::string line = "QLSDKCoreKit: " + diagnosticLine(diagnostic) + "\n";
            // At once, so that lines of the host's own do not get between. What cannot be written is lost.
            [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
        } catch (...) {
            // Nor is there anybody to tell that memory ran out.
        }
    }

  private:
    // Read when the platform is made, on the host's thread: a host may change its environment later.
    const bool isWanted_ = [] {
        const char* wish = ::secure_getenv("QLSDK_DIAGNOSTICS");
        return wish != nullptr && std::string_view(wish) == "stderr";
    }();
};

}  // namespace

std::shared_ptr<DiagnosticsSink> makeStderrDiagnostics() {
    return std::make_shared<StderrDiagnostics>();
}

}  // namespace qlsdk::platform
