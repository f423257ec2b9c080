// The C side of the core's headers, called from a C source beside this one.

#include <gtest/gtest.h>

#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

extern "C" {
const char* cArchitecture(void);
const char* cLocale(void);
const char* cKitVersion(void);
int cProbes(void);
int cConstantsHaveTheirValues(void);
int cLoggerCollectsReports(void);
}

namespace {

TEST(CoreHeaders, AnswerAProgramInC) {
    qlsdk::platform::testing::FakePlatform fakes;
    fakes.process->record.flags = 0x800;
    fakes.bundles->setMain({{"CFBundleVersion", "7.1"}}, "/opt/share.appex");
    ASSERT_TRUE(fakes.install());
    EXPECT_STREQ(cArchitecture(), "x86_64");
    EXPECT_STREQ(cLocale(), "en-US");
    EXPECT_STREQ(cKitVersion(), "7.1");
    EXPECT_EQ(cProbes(), 2 + 4);
}

TEST(CoreHeaders, HoldTheConstants) {
    EXPECT_TRUE(cConstantsHaveTheirValues());
}

TEST(CoreHeaders, LetALoggerInCCollectReports) {
    EXPECT_TRUE(cLoggerCollectsReports());
}

}  // namespace
