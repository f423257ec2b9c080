#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <random>
#include <thread>

#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

constexpr std::uint64_t kThreads = 8;
constexpr std::uint64_t kPushesPerThread = 10'000;
/// A thread lets the queue catch up after so many pushes, so that pushes, runs and failures interleave.
constexpr std::uint64_t kPushesInARow = 10;
constexpr std::chrono::minutes kPatience{5};

/// A server that counts how often each sequence id reaches it and answers at random, on threads of its own.
class MoodyServer final : public platform::UrlSession {
  public:
    explicit MoodyServer(std::shared_ptr<platform::SerialQueue> thread)
        : thread_(std::move(thread)), arrivals_(kThreads * kPushesPerThread + 1) {}

    void dataTask(platform::UrlRequest request, platform::BodyCeiling,
                  platform::UrlCompletion completion) override {
        thread_->async([this, body = std::move(request.body).value_or(Data()),
                        completion = std::move(completion)] { completion(resultFor(body)); });
    }
    void calmDown() { calm_ = true; }
    /// Read only when nothing is under way.
    [[nodiscard]] const std::vector<int>& arrivals() const { return arrivals_; }

  private:
    platform::UrlResult resultFor(const Data& body) {
        for (std::size_t i = 0; i + sizeof(std::uint64_t) <= body.size(); i += sizeof(std::uint64_t)) {
            std::uint64_t id = 0;
            std::memcpy(&id, body.data() + i, sizeof id);
            ++arrivals_.at(id);
        }
        const auto mood = calm_ ? 0 : random_() % 3;
        if (mood == 1) return {.error = platform::UrlError{7, "reset"}, .response = {}, .body = {}};
        const std::int64_t status = mood == 2 ? 500 : 200;
        return {
            .error = {}, .response = platform::UrlResponse{.statusCode = status, .headers = {}}, .body = {}};
    }

    std::shared_ptr<platform::SerialQueue> thread_;
    std::atomic<bool> calm_{false};
    // Both belong to `thread_`.
    std::minstd_rand random_{42};
    std::vector<int> arrivals_;
};

class IdWriter final : public AnalyticsEventsQueueDelegate {
  public:
    std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList& events, std::int64_t) override {
        Data body;
        for (const auto& element : events) {
            const std::uint64_t id = eventWrapperOf(element)->sequenceId();
            const auto* bytes = reinterpret_cast<const std::uint8_t*>(&id);
            body.insert(body.end(), bytes, bytes + sizeof id);
        }
        return body;
    }
};

TEST(AnalyticsEventsQueueStress, ManyThreadsAndAMoodyServerSendEachRecordOnceOrTwice) {
    const platform::testing::FakePlatform fakes;
    const platform::Platform real = platform::makeDefaultPlatform();
    platform::Platform mixed = fakes.platform();
    mixed.queues = real.queues;
    mixed.activity = real.activity;
    const auto server = std::make_shared<MoodyServer>(real.queues->makeSerialQueue("server"));
    mixed.urlSession = server;
    ASSERT_EQ(platform::install(mixed), platform::InstallResult::installed);

    const auto delegate = std::make_shared<IdWriter>();
    const auto queue = AnalyticsEventsQueue::create("/v1/stress", nullptr, "stress.plist", 10, delegate);
    std::vector<std::thread> pushers;
    for (std::uint64_t t = 0; t < kThreads; ++t) {
        pushers.emplace_back([&queue] {
            for (std::uint64_t i = 0; i < kPushesPerThread; ++i) {
                queue->pushEvent(std::make_shared<EncodablePicoproto>(picoproto_new("Event")));
                if (i % kPushesInARow == 0) {
                    EXPECT_TRUE(platform::waitUntilIdle(kPatience));
                }
            }
        });
    }
    for (std::thread& pusher : pushers) pusher.join();
    ASSERT_TRUE(platform::waitUntilIdle(kPatience));
    server->calmDown();
    queue->flushQueue();
    ASSERT_TRUE(platform::waitUntilIdle(kPatience));

    const std::vector<int>& arrivals = server->arrivals();
    EXPECT_EQ(arrivals.front(), 0) << "ids begin at 1";
    EXPECT_EQ(std::count_if(arrivals.begin() + 1, arrivals.end(), [](int n) { return n < 1; }), 0)
        << "ids are dense and every record was sent";
    EXPECT_EQ(*std::max_element(arrivals.begin(), arrivals.end()), 2) << "some were retried, none thrice";
}

}  // namespace
}  // namespace qlsdk
