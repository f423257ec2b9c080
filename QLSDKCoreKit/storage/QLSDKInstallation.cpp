#include "QLSDKCoreKit/storage/QLSDKInstallation.h"

#include "QLSDKCoreKit/core/Uuid.h"
#include "QLSDKCoreKit/storage/QLSDKKeychainManager.h"
#include "QLSDKCoreKit/values/internal/Utf8.h"

namespace qlsdk {

std::optional<std::string> QLSDKInstallation::installationId() {
    if (installationId_) return installationId_;
    if (const std::optional<Data> stored = QLSDKKeychainManager::dataForKey(installationIdKey())) {
        if (platform::isValidUtf8(textOf(*stored))) installationId_ = textOf(*stored);
        return installationId_;
    }
    installationId_ = makeUuidString();
    // A store that fails costs only the identifier's survival of a restart.
    if (installationId_) QLSDKKeychainManager::setData(bytesOf(*installationId_), installationIdKey());
    return installationId_;
}

std::string_view QLSDKInstallation::installationIdKey() noexcept {
    return "com.quillo.quill-kit.installation-id";
}

}  // namespace qlsdk
