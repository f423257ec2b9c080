#include "QLSDKCoreKit/core/QLSDKTweaks.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"

namespace qlsdk {

const QLSDKTestData& QLSDKTestData::shared() {
    static constinit platform::ForkSafeOnce<QLSDKTestData> testData;
    return testData.get([] { return QLSDKTestData(); });
}

std::optional<std::string> QLSDKTestData::oauthAccessToken() const {
    return platform::current().process->environmentVariable("uiTestAccessToken");
}

}  // namespace qlsdk
