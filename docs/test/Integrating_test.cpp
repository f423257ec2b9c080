// The code of docs/integrating.md, so that it compiles and does what the page says. scripts/check-docs holds
// the two together: every block of the page stands here or in the C file beside this one.

#include <filesystem>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/QLSDKCoreKit.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

extern "C" int integratingHostInC(const char* home);

using namespace qlsdk;

namespace {

std::vector<std::string> consoleLines;

void startHost(const std::string& home) {
    platform::LinuxPlatformOptions options;
    options.home = home;
    options.infoDictionary = Dictionary{
        {"CFBundleIdentifier", "com.example.host"}, {"CFBundleVersion", "4.2"}, {"QLSDKClientId", "abc"}};
    platform::Platform platform = platform::makeLinuxPlatform(options);
    platform.controls.consent = platform::Consent::undecided;
    platform.controls.longestRetryDelay = std::chrono::hours(24);
    platform.controls.dryRun = [](const platform::UrlRequest& request) {
        consoleLines.push_back(request.method + " " + request.url);
    };
    if (platform::install(std::move(platform)) == platform::InstallResult::tooLate) std::abort();
}

void reportTelemetry() {
    QLSDKHeartbeatEventsQueue::sharedInstance().addEvent({QLSDKKitTypeSharing, "1.0"});
    QLSDKOperationalMetricsQueue::sharedInstance().addCount(1, "app.started");
    QLSDKOperationalMetricsQueue::sharedInstance().addLatency(250, "app.start");
}

void userAnswered(bool agrees) {
    platform::setConsent(agrees ? platform::Consent::granted : platform::Consent::refused,
                         [] { consoleLines.push_back("done"); });
}

void becomeInactive() {
    platform::current().notificationCenter->post(platform::kWillResignActiveNotification);
}

std::uint64_t deliveredSoFar() {
    const platform::DeliveryCounts counts = platform::totalDeliveryCounts();
    return counts[platform::Delivery::accepted];
}

TEST(Integrating, AHostAsksItsUserFirst) {
    const platform::testing::TemporaryDirectories home;
    startHost(home.path());
    reportTelemetry();
    becomeInactive();
    ASSERT_TRUE(platform::waitUntilIdle(std::chrono::minutes(1)));
    EXPECT_TRUE(consoleLines.empty());

    userAnswered(true);
    ASSERT_TRUE(platform::waitUntilIdle(std::chrono::minutes(1)));
    EXPECT_EQ(consoleLines.size(), 3u) << "two uploads, and the answer carried out";
    EXPECT_EQ(deliveredSoFar(), 3u);

    userAnswered(false);
    ASSERT_TRUE(platform::waitUntilIdle(std::chrono::minutes(1)));
    EXPECT_TRUE(std::filesystem::is_empty(*platform::current().directories->cachesDirectory()));
}

// A kit with events of its own: one queue, and a delegate that joins them into a body.
class FeedEvents final : public AnalyticsEventsQueueDelegate {
  public:
    static std::shared_ptr<FeedEvents> create() {
        auto events = std::make_shared<FeedEvents>();
        events->queue_ = AnalyticsEventsQueue::create("/v1/sdk/feed", std::make_shared<QLPayloadProvider>(),
                                                      "feed-events.plist", 5, events);
        return events;
    }

    void opened(std::string_view storyId) {
        picoproto_ctx_s* message = picoproto_new("StoryOpened");
        picoproto_write_string_field(message, 1, std::string(storyId).c_str());
        queue_->pushEvent(std::make_shared<EncodablePicoproto>(message));
    }

    std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList& events, std::int64_t) override {
        std::vector<picoproto_ctx_s*> messages;
        for (const platform::ArchivedObject& element : events) {
            const std::shared_ptr<EventWrapper> record = eventWrapperOf(element);
            if (record != nullptr && record->event() != nullptr && record->event()->ctx() != nullptr) {
                messages.push_back(record->event()->ctx());
            }
        }
        picoproto_ctx_s* batch = picoproto_new("Stories");
        picoproto_write_repeated_embedded_message_field(batch, 1, messages.data(), messages.size(), 0);
        const EncodablePicoproto owner(batch);
        return Data(batch->buffer, batch->buffer + batch->length);
    }

  private:
    std::shared_ptr<AnalyticsEventsQueue> queue_;
};

TEST(Integrating, AKitSendsItsOwnEvents) {
    const platform::testing::FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    const auto events = FeedEvents::create();
    for (const char* story : {"a", "b", "c", "d", "e"}) events->opened(story);
    fakes.queues->runSerialQueuesUntilIdle();
    ASSERT_EQ(fakes.urlSession->requests().size(), 1u);
    EXPECT_EQ(textOf(*fakes.urlSession->requests().front().body),
              "\n\3\n\1e\n\3\n\1d\n\3\n\1c\n\3\n\1b\n\3\n\1a");
}

TEST(Integrating, AHostInC) {
    const platform::testing::TemporaryDirectories home;
    EXPECT_EQ(integratingHostInC(home.path().c_str()), 0);
}

}  // namespace
