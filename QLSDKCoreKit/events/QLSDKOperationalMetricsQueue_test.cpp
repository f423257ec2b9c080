#include "QLSDKCoreKit/events/QLSDKOperationalMetricsQueue.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include <wire/metrics.pb.h>

#include "QLSDKCoreKit/picoproto/testing/StrictReader.h"
#include "QLSDKCoreKit/platform/Diagnostics.h"
#include "QLSDKCoreKit/platform/internal/testing/FailingAllocations.h"
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

TEST_F(QLSDKOperationalMetricsQueueTest, AnyNameIsLegalAndDecodesStrictly) {
    std::vector<testing::RepairedText> names(std::begin(testing::kRepairedTexts),
                                             std::end(testing::kRepairedTexts));
    const std::string longName(50000, 'n');
    names.insert(
        names.end(),
        {{"", ""}, {std::string_view("cut\0here", 8), "cut"}, {"50%s", "50%s"}, {longName, longName}});
    ASSERT_EQ(names.size(), 10u);
    queue().addCount(1, std::string(131072, 'n'));
    queue().addLatency(1, std::string(200000, 'n'));
    for (const auto& name : names) queue().addCount(-1, name.raw);
    quillkit::wire::Metrics metrics;
    const std::string bytes = body();
    ASSERT_TRUE(testing::decodesStrictly(*metrics.GetDescriptor(), bytes));
    ASSERT_TRUE(metrics.ParseFromString(bytes));
    EXPECT_EQ(metrics.timers_size(), 0) << "longer than a message";
    const std::vector<platform::Diagnostic> told = platform::diagnostics();
    ASSERT_EQ(told.size(), 2u) << "the other one is of the token's key";
    EXPECT_EQ(told.front().kind, platform::DiagnosticKind::records);
    EXPECT_EQ(told.front().times, 2u);
    ASSERT_EQ(metrics.counters_size(), 10);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(metrics.counters(9 - i).name(), names[static_cast<std::size_t>(i)].repaired);
        EXPECT_EQ(metrics.counters(9 - i).count(), -1);
    }
}

TEST_F(QLSDKOperationalMetricsQueueTest, WantOfMemoryCostsEventsWholeAndNothingElse) {
    using testing::FailingAllocations;
    const std::string name(900, 'n');
    queue().addCount(-1, name);
    std::multiset<std::int64_t> kept{-1};
    for (const auto which : {FailingAllocations::Which::next, FailingAllocations::Which::all}) {
        bool failed = true;
        for (std::int64_t n = 0; failed; ++n) {
            FailingAllocations failing(which, n);
            queue().addCount(n, name);
            failing.stop();
            failed = failing.failed() > 0;
            if (!failed) kept.insert(n);
        }
    }
    while (kept.size() < 10) {
        kept.insert(1000);
        queue().addCount(1000, name);
    }
    quillkit::wire::Metrics metrics;
    ASSERT_TRUE(metrics.ParseFromString(body()));
    std::multiset<std::int64_t> sent;
    for (const auto& metric : metrics.counters()) {
        EXPECT_EQ(metric.name(), name);
        EXPECT_EQ(metric.timestamp().seconds(), 1000);
        sent.insert(metric.count());
    }
    // Some failures are survived: a message that cannot be made smaller is queued as it is.
    EXPECT_TRUE(std::includes(sent.begin(), sent.end(), kept.begin(), kept.end()));
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
