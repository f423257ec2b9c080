// A host that forks again and again while its threads use all of the library at once. Each child uses all of
// it, too, and ends; one that does not is told with the place at which it hangs.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/QLSDKCoreKit.h"
#include "QLSDKCoreKit/platform/PropertyList.h"
#include "QLSDKCoreKit/platform/internal/ForkSafeOnce.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"

namespace {

using namespace qlsdk;
using namespace qlsdk::platform;
using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr unsigned kSecondsUntilItHangs = 60;
constexpr int kThreads = 6;
// At a time, so that they are not slowed down by the parent alone.
constexpr int kMostChildren = 8;
// So that what is quick is met by as many forks as what is slow.
constexpr auto kTimeWithOneUse = 2ms;
// What is given to the network or the main queue piles up where nothing carries it away.
constexpr int kMostUnderWay = 16;

// What the main thread does.
std::atomic<const char*> place{"the start"};
std::atomic<int> underWay{0};
std::atomic<unsigned> consents{0};
std::atomic<bool> ending{false};

class Batch final : public AnalyticsEventsQueueDelegate {
  public:
    std::optional<Data> parseEvents(AnalyticsEventsQueue&, const EventList& events, std::int64_t) override {
        return Data(events.size());
    }
};

// No local static variable: a child of a thread's that was just making it would wait for ever, for us.
AnalyticsEventsQueue& events() {
    static constinit ForkSafeOnce<std::shared_ptr<Batch>> delegate;
    static constinit ForkSafeOnce<std::shared_ptr<AnalyticsEventsQueue>> queue;
    return *queue.get([] {
        return AnalyticsEventsQueue::create("/v1/forks", std::make_shared<QLPayloadProvider>(), "forks.plist",
                                            20, delegate.get([] { return std::make_shared<Batch>(); }));
    });
}

template <typename Start>
void startUnlessTooMany(const Start& start) {
    if (++underWay <= kMostUnderWay) return start([](auto&&...) { --underWay; });
    --underWay;
}

void push() {
    MessageContext base = QuillKitEvents::kitEventBaseWithKitType(QLSDKKitTypeFeed);
    events().pushEvent(QuillKitEvents::serverEventWithServerEventData(std::move(base)));
    QLSDKOperationalMetricsQueue::sharedInstance().addCount(1, "forks");
    QLSDKHeartbeatEventsQueue::sharedInstance().addEvent({QLSDKKitTypeFeed, "1.0"});
}

void flush() {
    events().flushQueue();
}

void notify() {
    NotificationCenter& center = *current().notificationCenter;
    const auto observer = center.addObserver("forked", [held = std::string(100, 'x')] {});
    center.post("forked");
    center.removeObserver(observer);
    center.post(kWillResignActiveNotification);
}

void count() {
    (void)totalDeliveryCounts();
    (void)deliveryCounts("forks.plist");
    reportDiagnostic({DiagnosticKind::records, "a fork is near"});
    (void)diagnostics();
}

void consentAnew() {
    constexpr std::array kAll{Consent::undecided, Consent::granted, Consent::refused, Consent::granted};
    startUnlessTooMany([&](auto done) { setConsent(kAll[consents++ % kAll.size()], done); });
    (void)consent();
}

void keepDefaults() {
    UserDefaults& defaults = *current().userDefaults;
    defaults.setObjectForKey(std::string("set"), "forks");
    (void)defaults.objectForKey("forks");
    defaults.setObjectForKey({}, "forks");
}

void keepSecrets() {
    const Data secret{1, 2, 3};
    (void)QLSDKKeychainManager::setData(secret, "forks");
    (void)QLSDKKeychainManager::dataForKey("forks");
    (void)QLSDKKeychainManager::removeDataForKey("forks");
    (void)QLSDKInstallation().installationId();
}

void lookAtBundles() {
    (void)QLKitVersionForClass(&ending);
    (void)current().bundles->bundleForAddress(libraryAddress());
    (void)current().bundles->bundleForAddress(reinterpret_cast<const void*>(&std::strtol));
    (void)QLSDKClientSetup::sharedInstance().clientIDText();
    (void)QLLocale();
    (void)QLArchitecture();
}

// XML, which a library parses that no fork handler of ours knows.
void readPropertyLists() {
    static constexpr std::string_view kXml =
        "<plist version=\"1.0\"><array><date>2024-01-02T03:04:05Z</date><real>0.5</real></array></plist>";
    const auto list = parsePropertyList({reinterpret_cast<const std::uint8_t*>(kXml.data()), kXml.size()});
    if (!list || !parsePropertyList(serializePropertyList(*list).value_or(Data{}))) std::abort();
}

void configure() {
    (void)QLSDKDynamicConfigManager::shared().dynamicConfig("forks");
    startUnlessTooMany([](auto done) {
        QLSDKDynamicConfigManager::create()->updateIfNecessary(
            std::make_shared<const DynamicConfigCallback>(done));
    });
}

void link() {
    const QLSDKDeepLinker linker(QLSDKDeepLinkFeatureCamera, Dictionary{}, std::nullopt, std::nullopt);
    (void)linker.linkWithFpAuth(true);
    startUnlessTooMany([&](auto done) { linker.connectWithFpAuth(true, done); });
}

void sealTokens() {
    const auto token = QLPayloadProvider().authHeaderValue();
    if (token) (void)openToken(*token);
}

void post() {
    startUnlessTooMany([](auto done) { current().queues->makeSerialQueue("forks")->async(done); });
    startUnlessTooMany([](auto done) { current().queues->mainQueue()->async(done); });
}

void request() {
    startUnlessTooMany([](auto done) {
        current().urlSession->dataTask(
            {.url = "https://localhost/", .method = "POST", .headers = {}, .body = Data(9'000)}, {}, done);
    });
}

struct Use {
    const char* name;
    void (*once)();
};

constexpr Use kUses[] = {
    {"pushing", push},
    {"flushing", flush},
    {"notifying", notify},
    {"counting", count},
    {"consenting", consentAnew},
    {"keeping user defaults", keepDefaults},
    {"keeping secrets", keepSecrets},
    {"looking at bundles", lookAtBundles},
    {"reading property lists", readPropertyLists},
    {"asking for the configuration", configure},
    {"linking", link},
    {"sealing tokens", sealTokens},
    {"posting", post},
    {"requesting", request},
};

// The main queue belongs to one thread in each process.
void pump() {
    (void)current().queues->mainQueue()->drain();
    (void)waitUntilIdle(2ms);
}

std::vector<std::thread> useEverything() {
    std::vector<std::thread> threads;
    for (std::size_t first = 0; first < kThreads; ++first) {
        threads.emplace_back([first] {
            for (std::size_t i = first; !ending; ++i) {
                const auto until = SteadyClock::now() + kTimeWithOneUse;
                do kUses[i % std::size(kUses)].once();
                while (SteadyClock::now() < until);
            }
        });
    }
    threads.emplace_back([] {
        while (!ending) pump();
    });
    return threads;
}

extern "C" void tellWhereItHangs(int) {
    const char* where = place;
    (void)!write(STDERR_FILENO, where, std::strlen(where));
    constexpr std::string_view kHangs = ": hangs\n";
    (void)!write(STDERR_FILENO, kHangs.data(), kHangs.size());
    _exit(2);
}

void beAt(const char* where) {
    place = where;
    alarm(kSecondsUntilItHangs);
}

[[noreturn]] void beChild(int number) {
    underWay = 0;
    for (const auto& [name, once] : kUses) {
        beAt(name);
        once();
    }
    beAt("pumping");
    pump();
    beAt("ending");
    if (number % 3 == 1) std::exit(0);
    if (number % 3 == 2) execl("/bin/true", "true", nullptr);
    _exit(0);
}

// Its own alarm ends a child that hangs.
bool endedWell() {
    int status = -1;
    const pid_t child = wait(&status);
    if (child == -1 || status != 0) std::fprintf(stderr, "child %d ended with status %d\n", child, status);
    return child != -1 && status == 0;
}

int forkAndCountIll(int times) {
    int ill = 0;
    for (int i = 0; i < times; ++i) {
        if (i >= kMostChildren && !endedWell()) ++ill;
        usleep(static_cast<useconds_t>(i * 137 % 3'000));  // Another moment each time.
        beAt("forking");
        if (fork() == 0) beChild(i);
        alarm(0);
    }
    for (int left = std::min(times, kMostChildren); left > 0; --left) {
        if (!endedWell()) ++ill;
    }
    return ill;
}

}  // namespace

/// fork_host TIMES HOME CONNECT_TO CA_FILE: forks so many times and prints what hangs or crashes; ends with 0
/// when nothing did, this process included.
int main(int, char** arguments) {
    signal(SIGALRM, tellWhereItHangs);
    LinuxPlatformOptions options;
    options.infoDictionary = Dictionary{{"QLSDKClientId", "forks"}, {"CFBundleVersion", "1.0"}};
    options.home = arguments[2];
    options.http.connectTo = arguments[3];
    options.http.caFile = arguments[4];
    options.http.proxy = "";
    if (install(makeLinuxPlatform(options)) != InstallResult::installed) return 1;

    std::vector<std::thread> threads = useEverything();
    const int ill = forkAndCountIll(std::atoi(arguments[1]));
    beAt("the parent's threads");
    ending = true;
    for (std::thread& thread : threads) thread.join();
    _exit(ill == 0 ? 0 : 1);
}
