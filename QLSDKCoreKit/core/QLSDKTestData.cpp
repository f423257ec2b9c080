#include "QLSDKCoreKit/core/QLSDKTestData.h"

#include "QLSDKCoreKit/platform/Platform.h"

namespace qlsdk {

const QLSDKTestData& QLSDKTestData::shared() {
    static const QLSDKTestData& testData = *new QLSDKTestData;
    return testData;
}

std::optional<std::string> QLSDKTestData::oauthAccessToken() const {
    return platform::current().process->environmentVariable("uiTestAccessToken");
}

}  // namespace qlsdk
