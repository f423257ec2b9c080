#include <gmock/gmock.h>

#include "QLSDKCoreKit/core/Helpers.h"
#include "QLSDKCoreKit/core/Uuid.h"
#include "QLSDKCoreKit/core/internal/RecordingLogger_test.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

using ::testing::ElementsAre;

TEST(DataHelpers, EncodesBothAlphabets) {
    EXPECT_EQ(ql_base64EncodedString(Data{0xFB, 0xFF}), "+/8=");
    EXPECT_EQ(ql_base64UrlEncodedString(Data{0xFB, 0xFF}), "-_8");
    EXPECT_EQ(ql_base64EncodedString({}), "");
    EXPECT_EQ(ql_base64UrlEncodedString({}), "");
}

TEST(DataHelpers, DecodesTheStandardAlphabetStrictly) {
    EXPECT_EQ(ql_dataWithBase64EncodedString("+/8="), (Data{0xFB, 0xFF}));
    EXPECT_EQ(ql_dataWithBase64EncodedString(""), Data());
    for (const char* invalid : {"+/8", "-_8=", "+/8=\n", "+/ 8=", "=", "+==="}) {
        EXPECT_FALSE(ql_dataWithBase64EncodedString(invalid)) << invalid;
    }
}

TEST(DataHelpers, TheUrlSafeDecoderDoesNotRestorePadding) {
    EXPECT_EQ(ql_dataWithBase64UrlEncodedString("-_-_"), (Data{0xFB, 0xFF, 0xBF}));
    EXPECT_EQ(ql_dataWithBase64UrlEncodedString("-_-_="), (Data{0xFB, 0xFF, 0xBF}));
    EXPECT_FALSE(ql_dataWithBase64UrlEncodedString("-_8"));
    EXPECT_FALSE(ql_dataWithBase64UrlEncodedString("-_8="));
}

// Expected values: openssl dgst -binary | base64.
TEST(DataHelpers, RendersDigests) {
    EXPECT_EQ(ql_md5Base64String(bytesOf("abc")), "kAFQmDzST7DWlj99KOF/cg==");
    EXPECT_EQ(ql_sha256Base64String(bytesOf("n3")), "hyHWZO9gCWqlWeGqbHLK8frPXOCLA6ppIe2a9WRdVGY=");
    EXPECT_EQ(ql_sha256Base64Url(bytesOf("abc")), "ungWv48Bz-pBQUDeXa4iI7ADYaOWF3qctBD_YfIAFa0");
}

TEST(DataHelpers, RandomBytesComeFromThePort) {
    const platform::testing::FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    EXPECT_EQ(ql_randomDataWithSize(4), (Data{0, 1, 2, 3}));
    EXPECT_EQ(randomUrlSafeStringWithSize(32).size(), 43U);
    EXPECT_EQ(randomBase64EncodedStringOfLength(32).size(), 44U);
    EXPECT_EQ(randomUrlSafeStringWithSize(0), "");
}

/// Leaves half of the bytes filled, as a source may that fails on the way.
class HalfRandom final : public platform::Random {
  public:
    int copyBytes(std::span<std::uint8_t> bytes) noexcept override {
        for (std::uint8_t& byte : bytes.first(bytes.size() / 2)) byte = 0xAA;
        errno = 35;
        return -1;
    }
};

TEST(DataHelpers, AFailingRandomSourceIsReportedAndGivesZeros) {
    const platform::testing::FakePlatform fakes;
    platform::Platform platform = fakes.platform();
    platform.random = std::make_shared<HalfRandom>();
    ASSERT_EQ(platform::install(platform), platform::InstallResult::installed);
    testing::RecordingLogger logger;
    EXPECT_EQ(ql_randomDataWithSize(6), Data(6, 0));
    EXPECT_THAT(
        logger.reports(),
        ElementsAre(
            "Assertion failure in +[NSData(Helpers) ql_randomDataWithSize:]: [ClientID=abc] Condition "
            "not satisfied: (result == 0), reason: 'Unable to generate random bytes: 35'"));
    EXPECT_FALSE(makeUuidString());
    EXPECT_EQ(logger.reports().size(), 1U);
}

// Expected value: Python's uuid.UUID(bytes=bytes(range(16)), version=4).
TEST(Uuid, IsVersionFourInUpperCase) {
    const platform::testing::FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    EXPECT_EQ(makeUuidString(), "00010203-0405-4607-8809-0A0B0C0D0E0F");
}

}  // namespace
}  // namespace qlsdk
