#include "QLSDKCoreKit/events/internal/RetryPolicy.h"

namespace qlsdk {
namespace {

TEST(RetryPolicy, ReadsTheLeadingIntegerOfAnything) {
    struct Case {
        const char* text;
        std::int64_t number;
    };
    for (const Case& c :
         {Case{"5000", 5000}, Case{"", 0}, Case{" \t\r\n\v\f 42ms", 42}, Case{"+7", 7}, Case{"-7", -7},
          Case{"+-7", 0}, Case{"--7", 0}, Case{"- 7", 0}, Case{"12.9", 12}, Case{"1e3", 1}, Case{"0x10", 0},
          Case{"soon", 0}, Case{"007", 7}, Case{"9223372036854775807", INT64_MAX},
          Case{"9223372036854775808", INT64_MAX}, Case{"-9223372036854775808", INT64_MIN},
          Case{"123456789012345678901234567890", INT64_MAX},
          Case{"-123456789012345678901234567890", INT64_MIN},
          Case{"\xC2\xA0"
               "5",
               0}}) {
        EXPECT_EQ(leadingInteger(c.text), c.number) << '"' << c.text << '"';
    }
}

TEST(RetryPolicy, TheServersDelayNeverOverflows) {
    const auto retryTime = [](const char* header, std::int64_t now) {
        const std::string text = header;
        return retryTimeMillis(&text, now);
    };
    EXPECT_EQ(retryTimeMillis(nullptr, 1000), 0);
    EXPECT_EQ(retryTime("5000", 1000), 6000);
    EXPECT_EQ(retryTime("0", 1000), 1000);
    EXPECT_EQ(retryTime("-1000", 1000), 0) << "not after 1970";
    EXPECT_EQ(retryTime("-999", 1000), 1);
    EXPECT_EQ(retryTime("9223372036854775807", 1), INT64_MAX);
    EXPECT_EQ(retryTime("-9223372036854775808", -1), 0);
}

TEST(RetryPolicy, TheHostsLongestDelayCapsTheServers) {
    using std::chrono::milliseconds;
    const auto capped = [](const char* header, milliseconds longest) {
        const std::string text = header;
        return retryTimeMillis(&text, 1000, longest);
    };
    EXPECT_EQ(capped("5001", milliseconds(5000)), 6000);
    EXPECT_EQ(capped("4999", milliseconds(5000)), 5999);
    EXPECT_EQ(capped("9223372036854775807", milliseconds::max()), INT64_MAX);
    EXPECT_EQ(capped("5000", milliseconds(-1)), 1000) << "at once";
    EXPECT_EQ(retryTimeMillis(nullptr, 1000, milliseconds(5000)), 0) << "a cap is no delay of its own";
}

TEST(RetryPolicy, OnlyTwoHundredAndFourHundredThreeAreFinal) {
    for (const std::int64_t status : {0, 100, 201, 204, 301, 400, 401, 404, 429, 500, 503}) {
        EXPECT_EQ(uploadOutcomeOf(false, status), UploadOutcome::failed) << status;
    }
    for (const std::int64_t status : {200, 403}) {
        EXPECT_EQ(uploadOutcomeOf(false, status), UploadOutcome::done);
        EXPECT_EQ(uploadOutcomeOf(true, status), UploadOutcome::failed);
    }
}

TEST(RetryPolicy, ARetryAtExactlyItsTimeStillWaits) {
    EventWrapper record(1, nullptr);
    EXPECT_EQ(dueOf(record, 0), Due::now);
    ASSERT_EQ(applyFailure(record, 500), AfterFailure::kept);
    EXPECT_EQ(dueOf(record, 500), Due::later);
    EXPECT_EQ(dueOf(record, 501), Due::now);
    record.setNumRetried(1);
    EXPECT_EQ(applyFailure(record, 900), AfterFailure::dropped);
    EXPECT_EQ(record.nextRetryTimeMillis(), 500);
}

}  // namespace
}  // namespace qlsdk
