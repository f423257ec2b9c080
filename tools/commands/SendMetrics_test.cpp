#include <algorithm>
#include <charconv>
#include <numeric>

#include "tools/testing/HostApplication.h"
#include <gmock/gmock.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>
#include <gtest/gtest.h>
#include <wire/metrics.pb.h>

#include "QLSDKCoreKit/core/Helpers.h"

namespace quillkit {
namespace {

using google::protobuf::internal::WireFormatLite;
using ::testing::ElementsAre;
using testing::Finished;
using testing::RunningCollector;

constexpr std::int64_t kLeast = INT64_MIN;

std::string bytesOfHex(const std::string& hex) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        int byte = 0;
        std::from_chars(hex.data() + i, hex.data() + i + 2, byte, 16);
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

/// The field numbers of a message as they stand on the wire.
std::vector<int> fieldOrder(const std::string& message) {
    google::protobuf::io::CodedInputStream input(reinterpret_cast<const std::uint8_t*>(message.data()),
                                                 static_cast<int>(message.size()));
    std::vector<int> order;
    while (const std::uint32_t tag = input.ReadTag()) {
        order.push_back(WireFormatLite::GetTagFieldNumber(tag));
        if (!WireFormatLite::SkipField(&input, tag)) break;
    }
    return order;
}

wire::Metrics decoded(const std::string& bytes) {
    wire::Metrics metrics;
    EXPECT_TRUE(metrics.ParseFromString(bytes));
    EXPECT_TRUE(metrics.unknown_fields().empty());
    return metrics;
}

std::vector<std::int64_t> countsOf(const wire::Metrics& metrics) {
    std::vector<std::int64_t> counts;
    for (const auto& counter : metrics.counters()) counts.push_back(counter.count());
    return counts;
}

std::vector<std::int64_t> latenciesOf(const wire::Metrics& metrics) {
    std::vector<std::int64_t> latencies;
    for (const auto& timer : metrics.timers()) latencies.push_back(timer.latency_millis());
    return latencies;
}

class SendMetrics : public ::testing::Test {
  protected:
    /// Runs `quillkit send` with time enough for any outcome.
    [[nodiscard]] Finished send(const RunningCollector& collector, std::vector<std::string> words) const {
        words.insert(words.begin(), {"send", "--wait", "60"});
        return host_.run(collector, words);
    }

    [[nodiscard]] std::string report(const std::string& numbers, int waiting) const {
        return numbers + "; " + std::to_string(waiting) + " waiting in " +
               host_.cacheFile("qlsdk-operational-metrics2.plist") + "\n";
    }

    const testing::HostApplication host_;
};

TEST_F(SendMetrics, UploadsTenRecordsWithTheCountersInFront) {
    const RunningCollector collector;
    const Finished first = send(collector, {"count", "photos.sent", "7", "--", "-9223372036854775808"});
    EXPECT_EQ(first.output, report("recorded 2; uploads: 0 accepted, 0 failed, 0 under way", 2));
    EXPECT_EQ(first.exitStatus, 0);
    const Finished second = send(collector, {"latency", "upload", "--", "120", "-80", "95", "300", "0"});
    EXPECT_EQ(second.output, report("recorded 5; uploads: 0 accepted, 0 failed, 0 under way", 7));
    EXPECT_TRUE(collector.logged().empty());
    const Finished third = send(collector, {"count", "caf\u00e9", "1", "2", "9223372036854775807"});
    EXPECT_EQ(third.output, report("recorded 3; uploads: 1 accepted, 0 failed, 0 under way", 0));
    EXPECT_EQ(third.exitStatus, 0);

    ASSERT_EQ(collector.logged().size(), 1U);
    const auto line = collector.logged()[0];
    EXPECT_EQ(line["path"], "/v1/sdk/metrics/operational");
    EXPECT_EQ(line["headers"]["Content-Type"], "application/protobuf");
    EXPECT_EQ(line["token"]["state"], "valid");
    const std::string bytes = bytesOfHex(line["body"]);
    // The timers lie between the counters in the queue.
    EXPECT_THAT(fieldOrder(bytes), ElementsAre(1, 1, 1, 1, 1, 2, 2, 2, 2, 2));
    const wire::Metrics metrics = decoded(bytes);
    EXPECT_THAT(countsOf(metrics), ElementsAre(INT64_MAX, 2, 1, kLeast, 7));
    EXPECT_THAT(latenciesOf(metrics), ElementsAre(0, 300, 95, -80, 120));
    EXPECT_EQ(metrics.counters(0).name(), "caf\u00e9");
    EXPECT_EQ(metrics.counters(4).name(), "photos.sent");
    EXPECT_EQ(metrics.timers(0).name(), "upload");
}

TEST_F(SendMetrics, WritesTheTimestampOfARecordInFrontOfItsName) {
    const RunningCollector collector;
    const std::int64_t before = qlsdk::currentTimeMillis();
    EXPECT_EQ(send(collector, {"latency", "t", "5", "--repeat", "10"}).exitStatus, 0);
    const std::string bytes = bytesOfHex(collector.logged().at(0)["body"]);
    const wire::Metrics metrics = decoded(bytes);
    ASSERT_EQ(metrics.timers_size(), 10);
    // Each record is a tag and a length of one byte, and the rest.
    const std::string first = bytes.substr(2, static_cast<std::size_t>(bytes[1]));
    EXPECT_THAT(fieldOrder(first), ElementsAre(2, 1, 3));
    const wire::Timestamp& timestamp = metrics.timers(9).timestamp();
    const std::int64_t recorded = timestamp.seconds() * 1000 + timestamp.nanos() / 1'000'000;
    EXPECT_GE(recorded, before);
    EXPECT_LE(recorded, qlsdk::currentTimeMillis());
}

TEST_F(SendMetrics, MeasuresLatenciesFromAPointInTime) {
    const RunningCollector collector;
    const std::int64_t before = qlsdk::currentTimeMillis();
    const Finished sent =
        send(collector, {"latency-from", "app.start", "--repeat", "5", "--", "1.5", "-2.5"});
    EXPECT_EQ(sent.output, report("recorded 10; uploads: 1 accepted, 0 failed, 0 under way", 0));
    // What passes between naming the point in time and recording adds to the latency.
    const std::int64_t mostPassed = qlsdk::currentTimeMillis() - before + 1;
    const auto latencies = latenciesOf(decoded(bytesOfHex(collector.logged().at(0)["body"])));
    ASSERT_EQ(latencies.size(), 10U);
    for (std::size_t i = 0; i < latencies.size(); ++i) {
        const std::int64_t exact = i % 2 == 0 ? -2500 : 1500;
        EXPECT_GE(latencies[i], exact);
        EXPECT_LE(latencies[i], exact + mostPassed);
    }
}

TEST_F(SendMetrics, LosesNoRecordOfManyThreads) {
    const RunningCollector collector;
    // How many batches they make is up to the threads; fewer than ten stay behind.
    const Finished sent = send(collector, {"count", "hits", "1", "1000", "--repeat", "30", "--threads", "7"});
    EXPECT_EQ(sent.exitStatus, 0) << sent.output;
    EXPECT_THAT(sent.output, ::testing::StartsWith("recorded 420; uploads: "));
    const auto lines = collector.logged();
    EXPECT_THAT(sent.output,
                ::testing::HasSubstr(" " + std::to_string(lines.size()) + " accepted, 0 failed, 0 under"));

    std::vector<std::int64_t> counts;
    for (const auto& line : lines) {
        const auto some = countsOf(decoded(bytesOfHex(line["body"])));
        counts.insert(counts.end(), some.begin(), some.end());
    }
    // Those that wait are brought out by the next ten.
    EXPECT_EQ(send(collector, {"count", "more", "0", "--repeat", "10"}).exitStatus, 0);
    for (std::size_t i = lines.size(); i < collector.logged().size(); ++i) {
        const auto some = countsOf(decoded(bytesOfHex(collector.logged()[i]["body"])));
        counts.insert(counts.end(), some.begin(), some.end());
    }
    EXPECT_EQ(std::accumulate(counts.begin(), counts.end(), std::int64_t{0}), 30 * 7 * 1001);
    EXPECT_EQ(std::count(counts.begin(), counts.end(), 1000), 30 * 7);
}

TEST_F(SendMetrics, TellsOfAFailedUploadAndOfItsRetry) {
    const RunningCollector collector({"--answer", "503"});
    const Finished failed = send(collector, {"count", "c", "1", "--repeat", "10"});
    EXPECT_EQ(failed.output, report("recorded 10; uploads: 0 accepted, 1 failed, 0 under way", 10));
    EXPECT_EQ(failed.exitStatus, 1);
    const Finished retried = send(collector, {"count", "c", "2"});
    EXPECT_EQ(retried.output, report("recorded 1; uploads: 1 accepted, 0 failed, 0 under way", 0));
    EXPECT_EQ(retried.exitStatus, 0);
    EXPECT_EQ(decoded(bytesOfHex(collector.logged().at(1)["body"])).counters_size(), 11);
}

}  // namespace
}  // namespace quillkit
