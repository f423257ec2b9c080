#include "QLSDKCoreKit/picoproto/MessageContext.h"

#include <cmath>
#include <limits>

#include <wire/timestamp.pb.h>

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

}  // namespace
}  // namespace qlsdk
