// Batches that outgrow the one message of an upload, with the emitters' own messages.

#include <numeric>

#include <wire/metrics.pb.h>

#include "QLSDKCoreKit/control/Consent.h"
#include "QLSDKCoreKit/events/QLSDKHeartbeatEventsQueue.h"
#include "QLSDKCoreKit/events/QLSDKOperationalMetricsQueue.h"
#include "QLSDKCoreKit/events/internal/UploadQueue_test.h"

namespace qlsdk {
namespace {

using platform::Consent;
using platform::Delivery;

constexpr const char* kMetricsArchive = "qlsdk-operational-metrics2.plist";

platform::ArchivedObject message(const char* name, std::size_t bytes) {
    const Data content(bytes, 'x');
    return std::shared_ptr<platform::Archivable>(
        std::make_shared<EventWrapper>(1, std::make_shared<EncodablePicoproto>(picoproto_new_from_bytes(
                                              name, content.data(), content.size()))));
}

using BatchDivision = UploadQueueTest;

TEST_F(BatchDivision, TheEmittersCountToTheByteWhatTheWriterTakes) {
    install();
    makeQueue(1);
    AnalyticsEventsQueueDelegate* emitters[] = {&QLSDKHeartbeatEventsQueue::sharedInstance(),
                                                &QLSDKOperationalMetricsQueue::sharedInstance()};
    const char* names[][2] = {{"Heartbeat", "Heartbeat"}, {"CounterMetric", "TimerMetric"}};
    for (std::size_t e = 0; e < 2; ++e) {
        for (const std::size_t first : {0u, 1u, 127u, 128u, 16'383u, 16'384u, 65'000u}) {
            const std::size_t prefix = first < 128 ? 2 : first < 16'384 ? 3 : 4;
            for (const int beyond : {-1, 0, 1}) {
                const std::size_t second =
                    PICOPROTO_MAX_LENGTH - prefix - first - 4 + static_cast<std::size_t>(beyond + 1) - 1;
                EventList events = {message(names[e][0], first), message(names[e][1], second)};
                if (e == 1) events.push_back(message("Other", 1000));
                const bool fits = beyond <= 0;
                EXPECT_EQ(emitters[e]->recordsThatFit(*queue, events), events.size() - (fits ? 0 : 1))
                    << first << ' ' << beyond;
                std::optional<std::size_t> written;
                try {
                    written = emitters[e]->parseEvents(*queue, events, 1)->size();
                } catch (const std::exception&) {
                    // The writer is the judge of what fits.
                }
                EXPECT_EQ(written, fits ? std::optional<std::size_t>(PICOPROTO_MAX_LENGTH +
                                                                     static_cast<std::size_t>(beyond + 1) - 1)
                                        : std::nullopt);
            }
        }
        EXPECT_EQ(emitters[e]->recordsThatFit(*queue, {message(names[e][0], PICOPROTO_MAX_LENGTH - 4)}), 1u);
        EXPECT_EQ(emitters[e]->recordsThatFit(*queue, {message(names[e][0], PICOPROTO_MAX_LENGTH - 3)}), 0u);
        EXPECT_EQ(emitters[e]->recordsThatFit(*queue, {}), 0u);
    }
}

TEST_F(BatchDivision, WhatHasGatheredWithoutConsentArrivesWholeOldestFirst) {
    constexpr int kMetrics = 600;
    install({.consent = Consent::undecided});
    auto& metrics = QLSDKOperationalMetricsQueue::sharedInstance();
    const std::string longName(500, 'n');
    for (int i = 0; i < kMetrics; ++i) metrics.addCount(i, longName);
    run();
    platform::setConsent(Consent::granted);
    run();
    const std::size_t firstTries = bodies().size();
    EXPECT_EQ(firstTries, 3u);
    // Refused as too large, as servers do it: everything comes once more.
    for (int status : {400, 400, 400}) answer(status);
    metrics.addCount(kMetrics, longName);
    run();
    while (fakes.urlSession->waiting() > 0) answer(200);

    std::vector<std::vector<std::int64_t>> tries(2);
    for (std::size_t i = 0; i < bodies().size(); ++i) {
        quillkit::wire::Metrics decoded;
        ASSERT_TRUE(decoded.ParseFromString(bodies()[i])) << i;
        std::vector<std::int64_t>& counts = tries[i < firstTries ? 0 : 1];
        for (int k = decoded.counters_size(); k > 0; --k) {
            EXPECT_EQ(decoded.counters(k - 1).name(), longName);
            counts.push_back(decoded.counters(k - 1).count());
        }
    }
    std::vector<std::int64_t> all(kMetrics);
    std::iota(all.begin(), all.end(), 0);
    EXPECT_EQ(tries[0], all) << "each batch is newest first, and the batches begin with the oldest";
    all.push_back(kMetrics);
    std::sort(tries[1].begin(), tries[1].end());
    EXPECT_EQ(tries[1], all);
    EXPECT_EQ(platform::deliveryCounts(kMetricsArchive).value()[Delivery::accepted], kMetrics + 1u);
}

TEST_F(BatchDivision, ADelegateThatContradictsItselfStillGetsEverythingSent) {
    /// Says that each record fits, and that none of several does; or more than there are.
    class Contradicting final : public AnalyticsEventsQueueDelegate {
      public:
        std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList& events,
                                        std::int64_t) override {
            sizes.push_back(events.size());
            return Data();
        }
        std::size_t recordsThatFit(AnalyticsEventsQueue&, const EventList& events) override {
            return events.size() == 1 ? 1000 : 0;
        }
        std::vector<std::size_t> sizes;
    };
    install();
    const auto contradicting = std::make_shared<Contradicting>();
    makeQueue(100);
    queue->setDelegate(contradicting);
    push(3);
    flush();
    EXPECT_EQ(contradicting->sizes, (std::vector<std::size_t>{1, 1, 1}));
    EXPECT_EQ(fakes.urlSession->waiting(), 3u);
}

}  // namespace
}  // namespace qlsdk
