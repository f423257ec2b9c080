// A kiosk: whoever used it last must leave no secret behind, so it brings a keychain that forgets, and the
// library's log goes where the kiosk's own does. Everything else stays what the system offers.
#include <cstdio>
#include <memory>

#include "SessionKeychain.h"

#include <QLSDKCoreKit/QLSDKCoreKit.h>

namespace {

class KioskLog final : public qlsdk::platform::Log {
  public:
    // Any thread. The line is complete, free of control characters, and data: never a format.
    void write(std::string_view line) noexcept override {
        std::printf("kiosk: %.*s\n", static_cast<int>(line.size()), line.data());
    }
};

}  // namespace

int main() {
    qlsdk::platform::Platform mine;
    mine.log = std::make_shared<KioskLog>();
    mine.keychain = std::make_shared<SessionKeychain>();
    // Before anything else of the library. Too late means that a static object has used it already.
    if (install(std::move(mine)) == qlsdk::platform::InstallResult::tooLate) return 1;

    const auto installationId = qlsdk::QLSDKInstallation().installationId();
    qlsdk::platform::logLine("this visit is " + installationId.value_or("nameless"));
    qlsdk::QLSDKKeychainManager::setData(qlsdk::bytesOf("ticket 17"), "visit");
    const auto stored = qlsdk::QLSDKKeychainManager::dataForKey("visit");
    qlsdk::platform::logLine("kept for this visit: " + (stored ? qlsdk::textOf(*stored) : "nothing"));
}
