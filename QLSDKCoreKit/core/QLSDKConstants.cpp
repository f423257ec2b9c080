#include "QLSDKCoreKit/core/QLSDKConstants.h"

const char* const kQLSDKErrorDomain = "QLSDKErrorDomain";
const char* const kQLOAuth2ClientLogoutError = "Force logged out";
const int64_t kQLSDKNSErrorStatusCodeUnknown = 0;
const double QLSDKCoreKitVersionNumber = 1.3;
const unsigned char QLSDKCoreKitVersionString[] =
    "@(#)PROGRAM:QLSDKCoreKit  PROJECT:QLSDKCoreKit-" QLSDK_VERSION_TEXT "\n";
