// The code of docs/integrating.md, so that it compiles and does what the page says. scripts/check-docs holds
// the two together: every block of the page stands here or in the C file beside this one.

#include <filesystem>
#include <iostream>
#include <stdexcept>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/QLSDKCoreKit.h"
#include "QLSDKCoreKit/picoproto/MessageContext.h"
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
    platform.controls.diagnostics = [](const platform::Diagnostic& failure) {
        std::cerr << platform::diagnosticLine(failure) << "\n";
    };
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
        MessageContext message(picoproto_new("StoryOpened"));
        writeUtf8Field(message, 1, storyId);
        if (!isComplete(message)) return;  // A text is too long for a message, or memory is short.
        queue_->pushEvent(std::make_shared<EncodablePicoproto>(std::move(message)));
    }

    std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList& events, std::int64_t) override {
        const MessageContext batch(picoproto_new("Stories"));
        for (const platform::ArchivedObject& element : events) {
            picoproto_ctx_s* story = messageOf(element);
            if (story == nullptr) continue;
            const auto status = picoproto_write_embedded_message_field(batch.get(), kStories, story, 0);
            if (status != 0) throw std::length_error("half a batch");
        }
        if (batch == nullptr) throw std::bad_alloc();
        return Data(batch->buffer, batch->buffer + batch->length);
    }

    std::size_t recordsThatFit(AnalyticsEventsQueue&, const EventList& events) override {
        std::uint64_t bytes = 0;
        std::size_t count = 0;
        for (auto element = events.rbegin(); element != events.rend(); ++element, ++count) {
            const picoproto_ctx_s* story = messageOf(*element);
            if (story != nullptr) bytes += embeddedMessageBytes(kStories, *story);
            if (bytes > PICOPROTO_MAX_LENGTH) break;
        }
        return count;
    }

  private:
    static constexpr std::uint64_t kStories = 1;

    static picoproto_ctx_s* messageOf(const platform::ArchivedObject& element) {
        const std::shared_ptr<EventWrapper> record = eventWrapperOf(element);
        return record != nullptr && record->event() != nullptr ? record->event()->ctx() : nullptr;
    }

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
