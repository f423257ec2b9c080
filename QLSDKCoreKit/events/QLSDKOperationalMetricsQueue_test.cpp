#include "QLSDKCoreKit/events/QLSDKOperationalMetricsQueue.h"

#include <cmath>
#include <limits>

#include <wire/metrics.pb.h>

#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

class QLSDKOperationalMetricsQueueTest : public ::testing::Test {
  protected:
    void SetUp() override {
        fakes.clock->set(1000.5);
        ASSERT_TRUE(fakes.install());
    }
    QLSDKOperationalMetricsQueue& queue() { return QLSDKOperationalMetricsQueue::sharedInstance(); }

    /// The body of the upload that ten recorded metrics have started.
    std::string body() {
        fakes.queues->runSerialQueuesUntilIdle();
        const auto requests = fakes.urlSession->requests();
        if (requests.empty()) return "nothing was sent";
        EXPECT_TRUE(requests.back().url.ends_with("/v1/sdk/metrics/operational"));
        return textOf(requests.back().body.value_or(Data()));
    }

    platform::testing::FakePlatform fakes;
};

TEST_F(QLSDKOperationalMetricsQueueTest, SendsTenAtATimeWithTheTimestampFirst) {
    for (int i = 0; i < 9; ++i) queue().addCount(5, "x");
    fakes.queues->runSerialQueuesUntilIdle();
    EXPECT_TRUE(fakes.urlSession->requests().empty());
    queue().addCount(5, "x");
    const std::string one("\x0A\x10\x12\x09\x08\xE8\x07\x10\x80\xCA\xB5\xEE\x01\x0A\x01x\x18\x05", 18);
    std::string ten;
    for (int i = 0; i < 10; ++i) ten += one;
    EXPECT_EQ(body(), ten) << "field 2, then 1, then 3";
}

TEST_F(QLSDKOperationalMetricsQueueTest, CountersComeBeforeTimersAndEachKindKeepsTheQueuesOrder) {
    for (int i = 0; i < 5; ++i) {
        queue().addCount(i, "count");
        queue().addLatency(10 * i, "latency");
    }
    const std::string bytes = body();
    quillkit::wire::Metrics metrics;
    ASSERT_TRUE(metrics.ParseFromString(bytes));
    ASSERT_EQ(metrics.counters_size(), 5);
    ASSERT_EQ(metrics.timers_size(), 5);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(metrics.counters(i).count(), 4 - i) << "newest first";
        EXPECT_EQ(metrics.timers(i).latency_millis(), 10 * (4 - i));
    }
    EXPECT_EQ(bytes, metrics.SerializeAsString().size() == bytes.size() ? bytes : "") << "no unknown fields";
    EXPECT_LT(bytes.rfind("count"), bytes.find("latency"));
}

TEST_F(QLSDKOperationalMetricsQueueTest, LatenciesFromATimeAreCutTowardZeroAndSaturate) {
    struct Case {
        double start;
        std::int64_t latency;
    };
    const double infinity = std::numeric_limits<double>::infinity();
    const Case cases[] = {{1000.5 - 1.2345, 1234}, {1000.5 + 1.2345, -1234}, {1000.5, 0},
                          {-1e300, INT64_MAX},     {1e300, INT64_MIN},       {-infinity, INT64_MAX},
                          {infinity, INT64_MIN},   {std::nan(""), 0},        {1000.5 - 0.0009, 0},
                          {1000.5 + 0.0009, 0}};
    for (const Case& c : cases) queue().addLatencyFromTime(c.start, "t");
    quillkit::wire::Metrics metrics;
    ASSERT_TRUE(metrics.ParseFromString(body()));
    EXPECT_EQ(metrics.counters_size(), 0);
    ASSERT_EQ(metrics.timers_size(), 10);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(metrics.timers(9 - i).latency_millis(), cases[i].latency) << cases[i].start;
    }
}

TEST_F(QLSDKOperationalMetricsQueueTest, AnyNameIsLegal) {
    const std::string_view names[] = {"", std::string_view("cut\0here", 8), "na\xC3\xAFve", "50%s"};
    for (int i = 0; i < 10; ++i) queue().addCount(-1, names[i % 4]);
    const std::string bytes = body();
    quillkit::wire::Metrics metrics;
    ASSERT_TRUE(metrics.ParseFromString(bytes));
    EXPECT_EQ(metrics.counters(9).name(), "");
    EXPECT_EQ(metrics.counters(8).name(), "cut");
    EXPECT_EQ(metrics.counters(6).name(), "50%s");
    EXPECT_EQ(metrics.counters(0).count(), -1);
}

TEST_F(QLSDKOperationalMetricsQueueTest, MessagesOfOtherNamesAreLeftOut) {
    EventList events;
    for (const char* name : {"Other", static_cast<const char*>(nullptr), "CounterMetrics", "TimerMetric"}) {
        events.emplace_back(std::shared_ptr<platform::Archivable>(
            std::make_shared<EventWrapper>(1, std::make_shared<EncodablePicoproto>(picoproto_new(name)))));
    }
    events.emplace_back(Value("no record"));
    const auto other = AnalyticsEventsQueue::create("/", nullptr, "other.plist", 1, {});
    EXPECT_EQ(queue().parseEvents(*other, events, 1), (Data{0x12, 0x00}));
    EXPECT_EQ(queue().parseEvents(*other, {}, 1), Data());
}

}  // namespace
}  // namespace qlsdk
