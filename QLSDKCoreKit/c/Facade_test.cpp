// The C functions, called from a C host beside this one and, with every null there is, from here.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/c/QLSDK.h"
#include "QLSDKCoreKit/c/internal/CHost_test.h"
#include "QLSDKCoreKit/config/QLSDKDynamicConfigManager.h"
#include "QLSDKCoreKit/control/Durability.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace {

using qlsdk::platform::testing::FakePlatform;

TEST(CFacade, CarriesAHostInC) {
    const qlsdk::platform::testing::TemporaryDirectories home;
    CHostReport report{};
    const auto fail = [] {
        qlsdk::platform::reportDiagnostic(
            {qlsdk::platform::DiagnosticKind::failedWrite, "cut", 28, "/a", "late"});
    };
    fail();
    cHostLives(home.path().c_str(), &report);
    EXPECT_EQ(report.started, QLSDKStarted);
    EXPECT_EQ(report.startedAgain, QLSDKStartedBefore);
    EXPECT_EQ(qlsdk::platform::durability(), qlsdk::platform::Durability::powerCut);
    EXPECT_EQ(report.dryRequests, 3) << "one for the configuration, the heartbeat and the metrics each";
    EXPECT_EQ(report.dryConfigRequests, 1);
    EXPECT_EQ(report.requestsWithClientId, 3);
    EXPECT_GT(report.bodyBytes, 20u);
    EXPECT_EQ(report.configAnswers, 1) << "a dry run has no configuration to give";
    EXPECT_EQ(report.consentChanges, 1);
    EXPECT_EQ(report.consent, QLSDKConsentRefused);
    EXPECT_EQ(report.idLength, 36u);
    EXPECT_EQ(report.linkLength, std::strlen(report.link));
    EXPECT_TRUE(std::string(report.link).starts_with("quilloaccesskitv1://oauth2?metadata=")) << report.link;
    EXPECT_EQ(report.metrics.accepted, 2u);
    EXPECT_EQ(report.metrics.discarded, 1u);
    EXPECT_EQ(report.total.accepted, 3u);
    EXPECT_STREQ(report.failure, "8 cut 28 /a late");
    EXPECT_EQ(report.failureTimes, 1);
    fail();
    std::uint64_t times = 0;
    const auto add = [](const QLSDKDiagnostic* each, void* context) {
        if (each->kind == QLSDKDiagnosticFailedWrite) *static_cast<std::uint64_t*>(context) += each->times;
    };
    EXPECT_EQ(QLSDKReadDiagnostics(add, &times), QLSDKReadDiagnostics(nullptr, nullptr));
    EXPECT_EQ(times, 2u);
}

/// Memory of a host whose structure has `size` bytes: no byte behind them is the library's.
template <typename Structure>
class OfSize {
  public:
    OfSize(const Structure& value, std::size_t size) : memory_(new std::byte[size]) {
        std::memset(memory_.get(), 0x5A, size);
        std::memcpy(memory_.get(), &value, std::min(size, sizeof value));
        std::memcpy(memory_.get(), &size, sizeof size);
    }
    Structure* get() { return reinterpret_cast<Structure*>(memory_.get()); }
    [[nodiscard]] std::byte at(std::size_t i) const { return memory_[i]; }

  private:
    std::unique_ptr<std::byte[]> memory_;
};

TEST(CFacade, UnderstandsHostsOfOlderAndNewerVersions) {
    const FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    QLSDKSetConsent(QLSDKConsentGranted, nullptr, nullptr);
    QLSDKAddCount(1, "one");
    QLSDKFlush();
    fakes.queues->runUntilIdle();
    ASSERT_TRUE(fakes.urlSession->answer(200));
    while (fakes.urlSession->answer(200)) {
    }
    fakes.queues->runUntilIdle();

    constexpr std::size_t kUpToAccepted = offsetof(QLSDKDeliveryCounts, retried);
    OfSize<QLSDKDeliveryCounts> older({}, kUpToAccepted);
    EXPECT_TRUE(QLSDKReadDeliveryCounts(nullptr, older.get()));
    EXPECT_EQ(older.get()->accepted, 1u);
    OfSize<QLSDKDeliveryCounts> newer({}, sizeof(QLSDKDeliveryCounts) + 8);
    EXPECT_TRUE(QLSDKReadDeliveryCounts(nullptr, newer.get()));
    EXPECT_EQ(newer.get()->size, sizeof(QLSDKDeliveryCounts) + 8) << "as the host has said";
    EXPECT_EQ(newer.get()->heldBack, 0u);
    EXPECT_EQ(newer.at(sizeof(QLSDKDeliveryCounts)), std::byte{0}) << "what only the host knows is zero";
    OfSize<QLSDKDeliveryCounts> forgotten({}, sizeof(std::size_t));
    EXPECT_FALSE(QLSDKReadDeliveryCounts(nullptr, forgotten.get()));
    OfSize<QLSDKDeliveryCounts> cut({}, kUpToAccepted + 1);
    EXPECT_FALSE(QLSDKReadDeliveryCounts(nullptr, cut.get()));
    QLSDKDeliveryCounts uninitialised{};
    uninitialised.size = ~std::size_t{0} / 8 * 8;
    EXPECT_FALSE(QLSDKReadDeliveryCounts(nullptr, &uninitialised));

    QLSDKLink link{};
    link.feature = 1;
    OfSize<QLSDKLink> olderLink(link, offsetof(QLSDKLink, metadataJson));
    OfSize<QLSDKLink> newerLink(link, sizeof link + 8);
    EXPECT_EQ(QLSDKMakeLink(olderLink.get(), nullptr, 0), QLSDKMakeLink(newerLink.get(), nullptr, 0));
    EXPECT_NE(QLSDKMakeLink(newerLink.get(), nullptr, 0), QLSDK_NO_TEXT);
    EXPECT_EQ(QLSDKMakeLink(&link, nullptr, 0), QLSDK_NO_TEXT) << "without its size";
}

TEST(CFacade, StartsWithTheOptionsOfAnyVersionAndRefusesThoseOfNone) {
    const qlsdk::platform::testing::TemporaryDirectories home;
    QLSDKStartOptions options{};
    options.homeDirectory = home.path().c_str();
    EXPECT_EQ(QLSDKStart(&options), QLSDKStartInvalid) << "and nothing is started";
    OfSize<QLSDKStartOptions> older(options, offsetof(QLSDKStartOptions, dryRun));
    older.get()->consent = QLSDKConsentRefused;
    EXPECT_EQ(QLSDKStart(older.get()), QLSDKStarted);
    EXPECT_EQ(QLSDKGetConsent(), QLSDKConsentRefused);
    OfSize<QLSDKStartOptions> newer(options, sizeof options + 8);
    EXPECT_EQ(QLSDKStart(newer.get()), QLSDKStartedBefore);
}

struct NullCase {
    const char* name;
    bool (*holds)();
};

const NullCase kNullCases[] = {
    {"heartbeat without a version", [] { return QLSDKAddHeartbeat(3, nullptr), true; }},
    {"count without a name", [] { return QLSDKAddCount(1, nullptr), true; }},
    {"latency without a name", [] { return QLSDKAddLatency(1, nullptr), true; }},
    {"consent without a listener",
     [] {
         QLSDKSetConsent(QLSDKConsentUndecided, nullptr, nullptr);
         return QLSDKGetConsent() == QLSDKConsentUndecided;
     }},
    {"update without a listener", [] { return QLSDKUpdateConfig(nullptr, nullptr), true; }},
    {"configuration without a name", [] { return QLSDKTakeConfig(nullptr) == nullptr; }},
    {"release of nothing", [] { return QLSDKReleaseConfig(nullptr), true; }},
    {"bool of nothing", [] { return QLSDKConfigBool(nullptr, nullptr, 1, true); }},
    {"long of nothing", [] { return QLSDKConfigLong(nullptr, nullptr, 1, 7) == 7; }},
    {"double of nothing", [] { return QLSDKConfigDouble(nullptr, nullptr, 1, 0.5) == 0.5; }},
    {"string of nothing",
     [] { return QLSDKConfigString(nullptr, nullptr, 1, nullptr, nullptr, 0) == QLSDK_NO_TEXT; }},
    {"string's default", [] { return QLSDKConfigString(nullptr, nullptr, 1, "abc", nullptr, 9) == 3; }},
    {"link of nothing", [] { return QLSDKMakeLink(nullptr, nullptr, 0) == QLSDK_NO_TEXT; }},
    {"opening nothing", [] { return QLSDKOpenLink(nullptr, nullptr, nullptr), true; }},
    {"identifier without a buffer", [] { return QLSDKInstallationId(nullptr, 100) == 36; }},
    {"counts of an unknown queue", [] { return !QLSDKReadDeliveryCounts("unknown", nullptr); }},
    {"counts of all, nowhere", [] { return QLSDKReadDeliveryCounts(nullptr, nullptr); }},
    {"start after the first use", [] { return QLSDKStart(nullptr) == QLSDKStartedBefore; }},
};

TEST(CFacade, HasAnOutcomeForEveryNull) {
    const FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    for (const NullCase& nullCase : kNullCases) EXPECT_TRUE(nullCase.holds()) << nullCase.name;
    fakes.queues->runUntilIdle();
    QLSDKFlush();
    fakes.queues->runUntilIdle();
    EXPECT_EQ(fakes.urlSession->requests().size(), 0u) << "consent was undecided by then";
    QLSDKSetConsent(QLSDKConsentGranted, nullptr, nullptr);
    fakes.queues->runUntilIdle();
    EXPECT_EQ(fakes.urlSession->requests().size(), 2u) << "the heartbeat and the configuration; no metric";
    QLSDKSetConsent(77, nullptr, nullptr);
    EXPECT_EQ(QLSDKGetConsent(), QLSDKConsentRefused) << "what nobody knows is no consent";
}

TEST(CFacade, FlushesTheQueuesAndTellsNobodyElse) {
    const FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    int heard = 0;
    qlsdk::platform::current().notificationCenter->addObserver(qlsdk::platform::kWillResignActiveNotification,
                                                               [&heard] { ++heard; });
    QLSDKAddCount(1, "waiting for nine more");
    QLSDKFlush();
    fakes.queues->runUntilIdle();
    EXPECT_EQ(fakes.urlSession->requests().size(), 2u) << "the configuration and the metric";
    EXPECT_EQ(heard, 0) << "the host does not become inactive";
}

TEST(CFacade, GivesTextsWholeOrNotAtAll) {
    const FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    const auto give = [](char* buffer, std::size_t capacity) {
        return QLSDKConfigString(nullptr, nullptr, 0, "four", buffer, capacity);
    };
    char buffer[8] = "?";
    EXPECT_EQ(give(buffer, 0), 4u);
    EXPECT_STREQ(buffer, "?");
    EXPECT_EQ(give(buffer, 4), 4u);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(give(buffer, 5), 4u);
    EXPECT_STREQ(buffer, "four");
    EXPECT_EQ(QLSDKConfigString(nullptr, nullptr, 0, nullptr, buffer, sizeof buffer), QLSDK_NO_TEXT);
    EXPECT_STREQ(buffer, "");
}

TEST(CFacade, ReadsOneFetchedConfiguration) {
    const FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    int outcome = 0;
    QLSDKUpdateConfig([](bool success, void* context) { *static_cast<int*>(context) = success ? 1 : 2; },
                      &outcome);
    fakes.queues->runUntilIdle();
    ASSERT_TRUE(fakes.urlSession->answer(
        200, {}, R"({"data":{"config":{"search":{"on":true,"deep":{"n":7,"x":1.5,"s":"text"}}}}})"));
    fakes.queues->runUntilIdle();
    EXPECT_EQ(outcome, 1);

    QLSDKConfig* config = QLSDKTakeConfig("search");
    ASSERT_NE(config, nullptr);
    EXPECT_EQ(QLSDKTakeConfig("search"), nullptr) << "handed out once";
    const char* on[] = {"on"};
    const char* number[] = {"deep", "n"};
    const char* real[] = {"deep", "x"};
    const char* text[] = {"deep", "s"};
    const char* broken[] = {"deep", nullptr};
    EXPECT_TRUE(QLSDKConfigBool(config, on, 1, false));
    EXPECT_EQ(QLSDKConfigLong(config, number, 2, 0), 7);
    EXPECT_EQ(QLSDKConfigDouble(config, real, 2, 0), 1.5);
    char buffer[16];
    EXPECT_EQ(QLSDKConfigString(config, text, 2, nullptr, buffer, sizeof buffer), 4u);
    EXPECT_STREQ(buffer, "text");
    EXPECT_EQ(QLSDKConfigLong(config, text, 2, -1), -1) << "a text is no number";
    EXPECT_EQ(QLSDKConfigLong(config, broken, 2, -1), -1);
    EXPECT_EQ(QLSDKConfigLong(config, nullptr, 2, -1), -1);
    QLSDKReleaseConfig(config);
}

TEST(CFacade, OpensLinksOnTheMainQueueAndSaysWhenThereIsNone) {
    const FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    std::string outcomes;
    const auto note = [](bool success, void* context) {
        *static_cast<std::string*>(context) += success ? 'y' : 'n';
    };
    QLSDKLink link{};
    link.size = sizeof link;
    QLSDKOpenLink(&link, note, &outcomes);
    link.payloadJson = "[1]";
    QLSDKOpenLink(&link, note, &outcomes);
    EXPECT_EQ(QLSDKMakeLink(&link, nullptr, 0), QLSDK_NO_TEXT) << "a payload is an object";
    link.payloadJson = nullptr;
    link.feature = 3;
    QLSDKOpenLink(&link, note, &outcomes);
    EXPECT_EQ(outcomes, "");
    fakes.queues->main()->drain();
    EXPECT_EQ(outcomes, "ynn");
    EXPECT_TRUE(QLSDKCanOpenLinks());
    fakes.application->canOpen = false;
    EXPECT_FALSE(QLSDKCanOpenLinks());
}

}  // namespace
