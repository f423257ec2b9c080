// Consent withdrawn in the middle of an upload: the real queue, session and files, and a server that stalls.

#include "QLSDKCoreKit/control/Consent.h"

#include <filesystem>
#include <future>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/control/ConsentGate.h"
#include "QLSDKCoreKit/control/DeliveryCounters.h"
#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"
#include "QLSDKCoreKit/platform/linux/testing/Certificates.h"
#include "QLSDKCoreKit/platform/linux/testing/TlsServer.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"

namespace qlsdk {
namespace {

using platform::Consent;
using platform::Delivery;
using platform::testing_support::Connection;
using platform::testing_support::TlsServer;

constexpr const char* kArchiveName = "stalled.plist";
// More than all buffers between two ends of a loopback connection hold, so that the upload has to wait.
constexpr std::size_t kBodyBytes = std::size_t{64} << 20;
constexpr std::uint64_t kBatch = 2;
// A bound on a hang, far above anything a loaded machine needs.
constexpr std::chrono::minutes kLong{2};

class Filler final : public AnalyticsEventsQueueDelegate {
  public:
    std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList&, std::int64_t) override {
        return Data(bodyBytes, 'x');
    }
    std::size_t bodyBytes = kBodyBytes;
};

class StalledUpload : public ::testing::Test {
  protected:
    void SetUp() override {
        platform::LinuxPlatformOptions options;
        options.home = home.path();
        options.http.connectTo = server.address();
        options.http.caFile = certificates.caFile();
        options.http.proxy = "";
        ASSERT_EQ(platform::install(platform::makeLinuxPlatform(options)),
                  platform::InstallResult::installed);
        queue = AnalyticsEventsQueue::create("/v1/stalled", nullptr, kArchiveName, kBatch, delegate);
    }
    // The server's script must not outlive what it waits for.
    void TearDown() override {
        if (!isReleased) released.set_value();
    }

    void push() { queue->pushEvent(std::make_shared<EncodablePicoproto>(picoproto_new("Event"))); }
    void pushBatch() {
        for (std::uint64_t i = 0; i < kBatch; ++i) push();
    }
    void release() {
        isReleased = true;
        released.set_value();
    }
    /// The first connection reads nothing until it is released, and then waits for its end; the later ones
    /// answer.
    void serve(Connection& connection) {
        if (!isFirst.exchange(false)) return platform::testing_support::answering(kAccepted)(connection);
        stalled.set_value();
        mayGoOn.wait();
        connection.waitForPeer();
        peerIsGone.set_value();
    }
    static std::uint64_t count(Delivery what) { return platform::deliveryCounts(kArchiveName).value()[what]; }
    [[nodiscard]] std::string path() const {
        return *platform::current().directories->cachesDirectory() + "/" + kArchiveName;
    }

    static constexpr char kAccepted[] = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";

    std::atomic<bool> isFirst{true};
    bool isReleased = false;
    std::promise<void> stalled;
    std::promise<void> released;
    std::future<void> mayGoOn = released.get_future();
    std::promise<void> peerIsGone;
    platform::testing::TemporaryDirectories home;
    platform::testing_support::Certificates certificates{home.path()};
    TlsServer server{certificates.serverContext(), [this](Connection& connection) { serve(connection); }};
    std::shared_ptr<Filler> delegate = std::make_shared<Filler>();
    std::shared_ptr<AnalyticsEventsQueue> queue;
};

TEST_F(StalledUpload, IsCutByARefusalWhichDeletesEverythingAndCanBeTakenBack) {
    pushBatch();
    stalled.get_future().wait();
    push();
    std::promise<void> refusalDone;
    platform::setConsent(Consent::refused, [&refusalDone] { refusalDone.set_value(); });
    ASSERT_EQ(refusalDone.get_future().wait_for(kLong), std::future_status::ready)
        << "although the server has not moved";
    EXPECT_FALSE(std::filesystem::exists(path()));
    EXPECT_EQ(server.connections(), 1);
    release();
    EXPECT_EQ(peerIsGone.get_future().wait_for(kLong), std::future_status::ready) << "the connection is cut";

    push();
    queue->flushQueue();
    ASSERT_TRUE(platform::waitUntilIdle(kLong));
    EXPECT_FALSE(std::filesystem::exists(path()));
    EXPECT_EQ(server.connections(), 1) << "nothing was sent";
    EXPECT_EQ(count(Delivery::discarded), kBatch + 2) << "in flight, waiting, and pushed too late";

    std::promise<void> grantDone;
    platform::setConsent(Consent::granted, [&grantDone] { grantDone.set_value(); });
    grantDone.get_future().wait();
    pushBatch();
    ASSERT_TRUE(platform::waitUntilIdle(kLong));
    EXPECT_EQ(count(Delivery::accepted), kBatch);
    EXPECT_EQ(count(Delivery::retried), 0u);
}

TEST_F(StalledUpload, SurvivesConsentThatChangesAllTheTime) {
    delegate->bodyBytes = 100;
    pushBatch();
    stalled.get_future().wait();
    release();
    std::atomic<int> changes{0};
    constexpr int kRounds = 200;
    for (int i = 0; i < kRounds; ++i) {
        push();
        platform::setConsent(i % 3 == 0 ? Consent::refused : Consent::granted, [&changes] { ++changes; });
    }
    platform::setConsent(Consent::refused, [&changes] { ++changes; });
    ASSERT_TRUE(platform::waitUntilIdle(kLong));
    EXPECT_EQ(changes, kRounds + 1);
    EXPECT_EQ(platform::consent(), Consent::refused);
    EXPECT_FALSE(std::filesystem::exists(path()));
    const platform::DeliveryCounts counts = platform::totalDeliveryCounts();
    EXPECT_EQ(counts[Delivery::accepted] + counts[Delivery::discarded] + counts[Delivery::droppedAfterRetry],
              kRounds + kBatch)
        << "every record has an end";
}

TEST(ConsentGate, ARefusalUnderWayAtAForkStaysInTheChild) {
    enum Finding { asExpected, isOver, isGranted };
    const platform::testing::TemporaryDirectories home;
    platform::LinuxPlatformOptions options;
    options.home = home.path();
    EXPECT_EQ(platform::makeLinuxPlatform(options).urlSession->mostUploadsOfAQueue(), 64u);
    options.http.mostUploadsOfAQueue = 5;
    ASSERT_EQ(platform::install(platform::makeLinuxPlatform(options)), platform::InstallResult::installed);
    EXPECT_EQ(platform::current().urlSession->mostUploadsOfAQueue(), 5u);

    platform::ConsentGate::Refusal held;
    platform::consentGate().addKeeper({[&held](auto refusal) { held = std::move(refusal); }, nullptr, ""},
                                      platform::consentGate().refusals());
    std::promise<void> refusalDone;
    platform::setConsent(Consent::refused, [&refusalDone] { refusalDone.set_value(); });
    ASSERT_TRUE(platform::waitUntilIdle(kLong));
    const auto inChild = [] {
        bool changed = false;
        platform::setConsent(Consent::granted, [&changed] { changed = true; });
        if (!platform::waitUntilIdle(kLong) || changed) return isOver;
        return platform::consent() == Consent::refused ? asExpected : isGranted;
    };
    const pid_t child = ::fork();
    if (child == 0) ::_exit(inChild());
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == asExpected) << status;

    // The parent's goes on and ends.
    held = nullptr;
    ASSERT_EQ(refusalDone.get_future().wait_for(kLong), std::future_status::ready);
    std::promise<void> grantDone;
    platform::setConsent(Consent::granted, [&grantDone] { grantDone.set_value(); });
    grantDone.get_future().wait();
    EXPECT_EQ(platform::consent(), Consent::granted);
}

}  // namespace
}  // namespace qlsdk
