#include <limits>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/core/Helpers.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

TEST(DateHelpers, RoundsDownAndStaysInRange) {
    struct Case {
        double seconds;
        std::int64_t millis;
    };
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    const Case cases[] = {{1'700'000'000.0, 1'700'000'000'000},
                          {0.0019, 1},
                          {-0.0001, -1},
                          {1e300, INT64_MAX},
                          {-kInfinity, INT64_MIN},
                          {kInfinity - kInfinity, 0}};
    const platform::testing::FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    for (const Case& c : cases) {
        fakes.clock->set(c.seconds);
        EXPECT_EQ(currentTimeMillis(), c.millis) << c.seconds;
    }
}

}  // namespace
}  // namespace qlsdk
