#include "QLSDKCoreKit/picoproto/MessageContext.h"

#include <cmath>
#include <limits>
#include <new>

#include <wire/timestamp.pb.h>

#include "QLSDKCoreKit/platform/internal/testing/FailingAllocations.h"

namespace qlsdk {
namespace {

TEST(TimestampMessage, CutsSecondsAndNanosTowardZero) {
    struct Case {
        double time;
        std::int64_t seconds;
        std::int64_t nanos;
    };
    const Case cases[] = {
        {1546300800.25, 1546300800, 250000000},
        {0.0, 0, 0},
        {-1.5, -1, -500000000},
        {0.9999999999, 0, 999999999},
        {1e300, INT64_MAX, INT32_MAX},
        {-1e300, INT64_MIN, INT32_MIN},
        {std::numeric_limits<double>::infinity(), INT64_MAX, INT32_MAX},
        {std::nan(""), 0, 0},
    };
    for (const Case& c : cases) {
        const MessageContext message = timestampMessage(c.time);
        quillkit::wire::Timestamp decoded;
        ASSERT_TRUE(decoded.ParseFromArray(message->buffer, static_cast<int>(message->length))) << c.time;
        EXPECT_EQ(decoded.seconds(), c.seconds) << c.time;
        EXPECT_EQ(decoded.nanos(), c.nanos) << c.time;
        EXPECT_STREQ(message->name, "Timestamp");
    }
}

TEST(WriteUtf8Field, EndsAtTheNulAndAllocatesOnlyToRepair) {
    const std::string valid = "a name that no short string holds \xE2\x82\xAC";
    const MessageContext message(picoproto_new("M"));
    {
        const testing::FailingAllocations failing;
        EXPECT_EQ(writeUtf8Field(message, 1, valid), 0);
        EXPECT_EQ(writeUtf8Field(message, 1, std::string_view("a\0\xFF", 3)), 0);
        EXPECT_THROW(writeUtf8Field(message, 1, "\xFF and more than a short string holds"), std::bad_alloc);
    }
    EXPECT_EQ(writeUtf8Field(message, 1, std::string_view()), 0);
    EXPECT_EQ(writeUtf8Field(nullptr, 1, "a"), PICOPROTO_MESSAGE_TOO_LONG);
    EXPECT_EQ(textOf(encodedBytes(*message)), "\x0A\x25" + valid +
                                                  std::string("\x0A\x01"
                                                              "a\x0A\x00",
                                                              5));
    EXPECT_TRUE(isComplete(message));
}

}  // namespace
}  // namespace qlsdk
