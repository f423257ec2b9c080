#include "QLSDKCoreKit/core/QLSDKError.h"

#include <gtest/gtest.h>

#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

TEST(QLSDKError, HoldsStatusDescriptionAndReasonOnly) {
    const Error error = errorWithStatusCode(503, "busy", "try later");
    EXPECT_EQ(error.domain(), "QLSDKErrorDomain");
    EXPECT_EQ(error.code(), 503);
    EXPECT_EQ(error.userInfo(), (Dictionary{{"NSLocalizedDescriptionKey", "busy"},
                                            {"NSLocalizedFailureReasonErrorKey", "try later"}}));
    EXPECT_EQ(error.localizedDescription(), "busy");
    EXPECT_EQ(error.localizedFailureReason(), "try later");
}

TEST(QLSDKError, OnlyErrorsOfTheLibrarysMakingHaveAStatus) {
    const Error ours = errorWithStatusCode(-7, "", "");
    const Error copy = ours;
    EXPECT_EQ(statusCode(copy), -7);
    const Error lookalike(kQLSDKErrorDomain, 503, ours.userInfo());
    EXPECT_EQ(lookalike.domain(), ours.domain());
    EXPECT_EQ(statusCode(lookalike), kQLSDKNSErrorStatusCodeUnknown);
    EXPECT_FALSE(Error("other", 1).localizedDescription());
}

TEST(QLSDKError, TheLogoutErrorSpeaksTheUsersLanguage) {
    const platform::testing::FakePlatform fakes;
    fakes.bundles->setLibrary({}, Dictionary{{"force_logged_out", "Abgemeldet"}});
    ASSERT_TRUE(fakes.install());
    const Error error = logoutErrorWithReason("token revoked");
    EXPECT_EQ(statusCode(error), 401);
    EXPECT_EQ(error.localizedDescription(), "Abgemeldet");
    EXPECT_EQ(error.localizedFailureReason(), "token revoked");
    fakes.bundles->setLibrary({});
    EXPECT_EQ(logoutErrorWithReason("").localizedDescription(), "force_logged_out");
}

}  // namespace
}  // namespace qlsdk
