#include "Fleet.h"

#include <numeric>

#include "LoadPicture.h"

#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk::fleet {
namespace {

TEST(Fleet, EveryRecordIsDeliveredRefusedDroppedOrStillWaiting) {
    // A client has one heartbeat a day, but many metrics.
    for (const auto& [endpoint, clients] : {std::pair{Endpoint::heartbeat, 4000}, {Endpoint::metrics, 200}}) {
        for (const Scenario& scenario : answers()) {
            SCOPED_TRACE(scenario.name);
            const FleetRun run = playFleet(endpoint, scenario, static_cast<std::uint64_t>(clients), 1);
            const Fates& fates = run.fates;
            EXPECT_EQ(fates.made, fates.delivered + fates.refused + fates.dropped + fates.waiting);

            const std::uint64_t arrived =
                std::accumulate(run.load.begin(), run.load.end(), std::uint64_t{0},
                                [](std::uint64_t sum, const Load& load) { return sum + load.records; });
            EXPECT_EQ(arrived, fates.delivered + fates.refused + fates.retried + fates.dropped)
                << "the service has counted other records than the clients sent";

            const bool isFinal = scenario.statusCode == 403;
            const bool returnsTooSoon = scenario.delayMillis < kOutageEnds - kOutageBegins && !isFinal;
            EXPECT_EQ(fates.refused != 0, isFinal);
            EXPECT_EQ(fates.retried == 0, isFinal);
            EXPECT_EQ(fates.dropped != 0, returnsTooSoon);
        }
    }
}

TEST(Fleet, TheSameSeedDrawsTheSamePicture) {
    const auto picture = [](std::uint64_t seed) {
        return loadPicture("Load", {{"503", playFleet(Endpoint::metrics, answers()[4], 50, seed)}});
    };
    EXPECT_EQ(picture(1), picture(1));
    EXPECT_NE(picture(1), picture(2));
}

/// Answers at random, the same to everyone with the same seed, and remembers how long the batches were.
class MoodyService final : public Service {
  public:
    explicit MoodyService(std::uint64_t seed) : random_(seed) {}

    Answer answer(std::int64_t, std::size_t records) override {
        batches.push_back(records);
        static const Answer kAnswers[] = {{200, {}}, {403, {}}, {201, {}}, {500, {}}, {0, {}}};
        const auto draw = static_cast<std::size_t>(random_.uniform() * 8);
        if (draw < std::size(kAnswers)) return kAnswers[draw];
        return {429, std::to_string(125 * static_cast<int>(random_.uniform() * 24))};
    }
    std::vector<std::size_t> batches;

  private:
    Random random_;
};

/// Lets a service answer the library's own requests, whose bodies have one byte for each record.
class ServiceSession final : public platform::UrlSession, public AnalyticsEventsQueueDelegate {
  public:
    explicit ServiceSession(Service& service) : service_(service) {}

    std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList& events, std::int64_t) override {
        return Data(events.size());
    }
    void dataTask(platform::UrlRequest request, platform::BodyCeiling,
                  platform::UrlCompletion completion) override {
        const Answer answer = service_.answer(0, request.body.value().size());
        if (answer.statusCode == 0) {
            completion({.error = platform::UrlError{7, "no answer"}, .response = {}, .body = {}});
            return;
        }
        platform::UrlResponse response{.statusCode = answer.statusCode, .headers = {}};
        if (answer.retryAfterMillis) response.headers.set(kQLSDKRetryAfterHeader, *answer.retryAfterMillis);
        completion({.error = {}, .response = std::move(response), .body = {}});
    }

  private:
    Service& service_;
};

TEST(ClientQueue, SendsWhatTheLibrarysQueueSends) {
    constexpr std::uint64_t kSeed = 7;
    MoodyService librarysService(kSeed);
    const auto session = std::make_shared<ServiceSession>(librarysService);
    const platform::testing::FakePlatform fakes;
    platform::Platform platform = fakes.platform();
    platform.urlSession = session;
    ASSERT_EQ(platform::install(platform), platform::InstallResult::installed);

    for (const std::size_t maxEventBuffer : {1, 3, 10}) {
        SCOPED_TRACE(maxEventBuffer);
        MoodyService modelsService(kSeed);
        librarysService = MoodyService(kSeed);
        ClientQueue model(maxEventBuffer, modelsService);
        const auto queue = AnalyticsEventsQueue::create("/v1/test", nullptr,
                                                        "queue" + std::to_string(maxEventBuffer) + ".plist",
                                                        maxEventBuffer, session);
        Random random(kSeed, maxEventBuffer);
        for (int step = 0; step < 400; ++step) {
            // An eighth of a second is the same in the clock's seconds and in milliseconds.
            fakes.clock->advance(0.125 * static_cast<int>(random.uniform() * 4));
            const auto nowMillis = static_cast<std::int64_t>(fakes.clock->secondsSince1970() * 1000.0);
            if (random.uniform() < 0.9) {
                queue->pushEvent(std::make_shared<EncodablePicoproto>(picoproto_new("Event")));
                model.push(nowMillis);
            } else {
                queue->flushQueue();
                model.publish(nowMillis);
            }
            fakes.queues->runSerialQueuesUntilIdle();
        }
        EXPECT_GT(model.fates().dropped, 0U);
        EXPECT_EQ(modelsService.batches, librarysService.batches);
    }
}

}  // namespace
}  // namespace qlsdk::fleet
