#include "tests/faults/Scenarios.h"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <utility>

#include "QLSDKCoreKit/c/QLSDK.h"
#include "QLSDKCoreKit/control/Consent.h"
#include "QLSDKCoreKit/core/QLAppEnvironment.h"
#include "QLSDKCoreKit/core/QLSDKClientSetup.h"
#include "QLSDKCoreKit/events/QLSDKHeartbeatEventsQueue.h"
#include "QLSDKCoreKit/events/QLSDKOperationalMetricsQueue.h"
#include "QLSDKCoreKit/platform/Json.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/PropertyList.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"
#include "QLSDKCoreKit/values/internal/JsonWriter.h"

namespace qlsdk::faults {

namespace {

constexpr std::int64_t kPatienceMillis = 20'000;
constexpr const char* kMetricsQueue = "/v1/sdk/metrics/operational";

// Answers that were asked for, and that came.
std::atomic<int> owed{0};
std::atomic<int> answered{0};

void note(bool, void*) {
    ++answered;
}

void setConsent(QLSDKConsent consent) {
    ++owed;
    QLSDKSetConsent(
        consent, [](void*) { ++answered; }, nullptr);
}

bool settle() {
    (void)QLSDKMainQueueDrain();
    return QLSDKWaitUntilIdle(kPatienceMillis);
}

// Named as a host without a property list is, so that it finds the same files when it starts by itself.
constexpr QLSDKInfoEntry kInfo[] = {{"CFBundleIdentifier", "unidentified-application"},
                                    {"CFBundleVersion", "3.0"},
                                    {"QLSDKClientId", "faults"},
                                    {"QLSDKRedirectUrl", "example://auth"}};

// A library that was not started starts by itself, with its defaults, as soon as it is used.
bool startFromC(const HostSetup& setup) {
    QLSDKStartOptions options{};
    options.size = sizeof options;
    options.info = kInfo;
    options.infoCount = std::size(kInfo);
    options.homeDirectory = setup.home.c_str();
    options.connectTo = setup.connectTo.c_str();
    options.caFile = setup.caFile.c_str();
    return QLSDKStart(&options) != QLSDKStartFailed;
}

// With a short idle time: a library that ran out of memory in the middle of a transfer may let it stand
// still.
bool startLibrary(const HostSetup& setup) {
    try {
        Dictionary info;
        for (const QLSDKInfoEntry& entry : kInfo) info.set(entry.key, entry.value);
        platform::LinuxPlatformOptions options;
        options.infoDictionary = std::move(info);
        options.home = setup.home;
        options.http.connectTo = setup.connectTo;
        options.http.caFile = setup.caFile;
        options.http.idleTimeout = std::chrono::seconds(2);
        (void)platform::install(platform::makeLinuxPlatform(options));
        (void)QLSDKClientSetup::sharedInstance();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool sendOne() {
    QLSDKAddCount(1, "afterwards");
    QLSDKFlush();
    return settle();
}

// Sent, or kept to be sent again: a foreign library may go on without what it failed to load, such as the
// authorities to trust.
std::uint64_t metricsTakenCareOf() {
    QLSDKDeliveryCounts counts{};
    counts.size = sizeof counts;
    (void)QLSDKReadDeliveryCounts(kMetricsQueue, &counts);
    return counts.accepted + counts.retried;
}

void nothing(const HostSetup&, Status&) {}

void start(const HostSetup& setup, Status&) {
    if (startLibrary(setup)) settle();
}

void startForServerThatFails(const HostSetup& setup, Status& status) {
    status = 500;
    start(setup, status);
}

void startAndUse(const HostSetup& setup) {
    if (startLibrary(setup)) settle();
}

void pushAndPublish(const HostSetup&) {
    for (int i = 0; i < 11; ++i) QLSDKAddCount(i, "a metric whose name is too long to be stored in place");
    QLSDKAddLatency(250, "start");
    QLSDKAddHeartbeat(3, "1.0");
    QLSDKFlush();
    settle();
}

void pushFromCxx(const HostSetup&) {
    try {
        for (int i = 0; i < 3; ++i) {
            QLSDKOperationalMetricsQueue::sharedInstance().addCount(i, "counted");
            QLSDKOperationalMetricsQueue::sharedInstance().addLatencyFromTime(0, "measured");
            QLSDKHeartbeatEventsQueue::sharedInstance().addEvent({QLSDKKitTypeSharing, "2.0"});
        }
        platform::current().notificationCenter->post(platform::kWillResignActiveNotification);
    } catch (const std::bad_alloc&) {
        // Only asking for the shared objects may throw.
    }
    settle();
}

void fetchAndReadConfiguration(const HostSetup&) {
    ++owed;
    QLSDKUpdateConfig(note, nullptr);
    settle();
    QLSDKConfig* config = QLSDKTakeConfig("search");
    const char* number[] = {"deep", "n"};
    const char* text[] = {"deep", "s"};
    char buffer[64];
    (void)QLSDKConfigBool(config, number, 2, false);
    (void)QLSDKConfigLong(config, number, 2, 0);
    (void)QLSDKConfigDouble(config, number, 2, 0);
    (void)QLSDKConfigString(config, text, 2, "default", buffer, sizeof buffer);
    QLSDKReleaseConfig(config);
}

void makeAndOpenLinks(const HostSetup&) {
    char buffer[2048];
    QLSDKLink link{};
    link.size = sizeof link;
    link.feature = 1;
    link.metadataJson =
        R"({"a":[1,2.5,true,{"b":null}],"c":"a text that is too long to be stored in place"})";
    link.payloadJson = R"({"p":"q"})";
    link.additionalQueriesJson = R"({"x":"y z"})";
    link.withFingerprint = true;
    (void)QLSDKMakeLink(&link, buffer, sizeof buffer);
    ++owed;
    QLSDKOpenLink(&link, note, nullptr);
    (void)QLSDKCanOpenLinks();
    settle();
}

void changeConsent(const HostSetup&) {
    setConsent(QLSDKConsentUndecided);
    QLSDKAddCount(1, "kept");
    setConsent(QLSDKConsentRefused);
    QLSDKAddCount(1, "dropped");
    settle();
    setConsent(QLSDKConsentGranted);
    QLSDKAddCount(1, "sent");
    QLSDKFlush();
    settle();
}

std::uint64_t accepted() {
    QLSDKDeliveryCounts counts{};
    counts.size = sizeof counts;
    (void)QLSDKReadDeliveryCounts(kMetricsQueue, &counts);
    return counts.accepted;
}

bool isAnythingKept(const HostSetup& setup) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(setup.home)) {
        const std::string name = entry.path().filename();
        if (name.find("qlsdk-heartbeat") == 0 || name.find("qlsdk-operational") == 0) return true;
    }
    return false;
}

bool hadSomethingKept = false;

void keepWithoutConsent(const HostSetup& setup, Status& status) {
    start(setup, status);
    QLSDKSetConsent(QLSDKConsentUndecided, nullptr, nullptr);
    for (int i = 0; i < 3; ++i) QLSDKAddCount(i, "kept");
    settle();
    hadSomethingKept = isAnythingKept(setup);
}

/// For a library that starts by itself: it finds what the earlier process left, and no network.
void surround(const HostSetup& setup, Status&) {
    for (const auto& [name, value] : {std::pair("XDG_CACHE_HOME", setup.home + "/cache"),
                                      {"XDG_CONFIG_HOME", setup.home + "/config"},
                                      {"XDG_DATA_HOME", setup.home + "/data"},
                                      {"https_proxy", std::string("http://127.0.0.1:1")}}) {
        ::setenv(name, value.c_str(), 1);
    }
    hadSomethingKept = isAnythingKept(setup);
}

bool hasRefusalHeld = false;

void refuse(const HostSetup&) {
    setConsent(QLSDKConsentRefused);
    hasRefusalHeld = QLSDKGetConsent() == QLSDKConsentRefused;
    QLSDKAddCount(1, "dropped");
    settle();
}

const char* complaintOfRefusal(const HostSetup& setup) {
    if (!hadSomethingKept) return "nothing was kept that could be deleted";
    if (!hasRefusalHeld) return "a refusal does not hold when the call returns";
    if (!startLibrary(setup) || QLSDKGetConsent() != QLSDKConsentRefused) return "a refusal did not last";
    if (!settle() || answered != owed) return "a refusal is not answered once";
    setConsent(QLSDKConsentUndecided);
    if (!settle() || isAnythingKept(setup)) return "a refusal has deleted nothing by the next change";
    const std::uint64_t before = accepted();
    setConsent(QLSDKConsentGranted);
    QLSDKFlush();
    if (!settle()) return "a grant never ended";
    return accepted() != before ? "what was kept before a refusal is sent after it" : nullptr;
}

void askForFacts(const HostSetup&) {
    static const char here = 0;
    char buffer[64];
    (void)QLSDKInstallationId(buffer, sizeof buffer);
    (void)QLSDKInstallationId(buffer, sizeof buffer);
    QLSDKDeliveryCounts counts{};
    counts.size = sizeof counts;
    (void)QLSDKReadDeliveryCounts(kMetricsQueue, &counts);
    (void)QLSDKReadDeliveryCounts(nullptr, &counts);
    (void)QLIsRunningTests();
    (void)QLIsRunningExtension();
    (void)QLIsRunningWithDebugger();
    (void)QLArchitecture();
    (void)QLLocale();
    (void)QLKitVersionForClass(&here);
}

const Value& largeValue() {
    static const Value& large = *[] {
        Dictionary dictionary;
        for (int i = 0; i < 40; ++i)
            dictionary.set("a key that no short text can hold " + std::to_string(i), i);
        return new Value(std::move(dictionary));
    }();
    return large;
}

// What says in its type that it does not throw, used for the first time.
void useWhatIsNoexcept(const HostSetup&) {
    static constexpr std::string_view kXml =
        R"(<plist version="1.0"><array><real>0.5</real></array></plist>)";
    (void)platform::parsePropertyList({reinterpret_cast<const std::uint8_t*>(kXml.data()), kXml.size()});
    const Value& large = largeValue();
    (void)large.dictionary()->find("a key that no short text can hold 39");
    const auto text = platform::serializeJson(large);
    (void)(text ? platform::parseJson(bytesOf(*text)) : std::nullopt);
    const auto list = platform::serializePropertyList(large);
    (void)(list ? platform::parsePropertyList(*list) : std::nullopt);
    const Data archive = archiveRootObject(large, platform::RootClass::dictionary);
    (void)platform::unarchiveRootObject(archive, {});
}

constexpr Scenario kScenarios[] = {
    {"StartFromC", nothing,
     [](const HostSetup& setup) {
         if (startFromC(setup)) settle();
     }},
    {"Start", nothing, startAndUse},
    {"StartWithFiles", nothing, startAndUse, true},
    {"PushAndPublish", start, pushAndPublish},
    {"PushAndPublishFromTheStart", nothing,
     [](const HostSetup& setup) {
         if (startLibrary(setup)) pushAndPublish(setup);
     },
     true},
    {"PushFromCxx", start, pushFromCxx},
    {"ServerFails", startForServerThatFails, pushAndPublish},
    {"Configuration", start, fetchAndReadConfiguration},
    {"Links", start, makeAndOpenLinks},
    {"Consent", start, changeConsent},
    {"Refusal", keepWithoutConsent, refuse, false, complaintOfRefusal},
    {"RefusalBeforeTheStart", surround, refuse, true, complaintOfRefusal},
    {"Facts", start, askForFacts},
    {"Codecs", [](const HostSetup&, Status&) { (void)largeValue(); }, useWhatIsNoexcept},
};

}  // namespace

std::span<const Scenario> scenarios() {
    return kScenarios;
}

void leaveFiles(const HostSetup& setup, Status& status) {
    status = 500;
    (void)startLibrary(setup);
    pushAndPublish(setup);
    char buffer[64];
    (void)QLSDKInstallationId(buffer, sizeof buffer);
}

const char* complaintAfterwards(const HostSetup& setup, Status& status) {
    status = 200;
    if (!startLibrary(setup)) return "the library does not start";
    QLSDKSetConsent(QLSDKConsentGranted, nullptr, nullptr);
    // What could not be carried on waits for the next one to come by.
    ++owed;
    QLSDKUpdateConfig(note, nullptr);
    if (!sendOne()) return "work never ended";
    if (answered != owed) return answered < owed ? "an answer is missing" : "an answer came twice";
    const std::uint64_t before = metricsTakenCareOf();
    if (!sendOne()) return "work after the failure never ended";
    return metricsTakenCareOf() == before ? "a push after the failure is neither sent nor kept" : nullptr;
}

}  // namespace qlsdk::faults
