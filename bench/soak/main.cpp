// A long life of one upload queue in a short time: real threads and real files, but a clock that is moved by
// hand and a server that fails at random. Ends with 1 when anything grows or a record goes astray.

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "FlakyServer.h"
#include "Ledger.h"
#include "ProcessSize.h"

#include "QLSDKCoreKit/events/AnalyticsEventsQueue.h"
#include "QLSDKCoreKit/events/internal/QueueArchive.h"
#include "QLSDKCoreKit/network/QLPayloadProvider.h"
#include "QLSDKCoreKit/platform/Platform.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"
#include "QLSDKCoreKit/platform/testing/FakeFacts.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"

namespace qlsdk::soak {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr const char* kArchiveName = "soak.plist";
constexpr std::uint64_t kMaxEventBuffer = 10;
/// The queue catches up after each round of so many pushes: a list that outruns its worker grows by design.
constexpr std::uint64_t kPushesPerRound = kMaxEventBuffer;
/// In every so many rounds the host pushes half as much and then resigns active.
constexpr std::uint64_t kRoundsPerSession = 10;
/// So much simulated time passes in each round.
constexpr double kSecondsPerRound = 1.0;
constexpr std::chrono::minutes kPatience{5};
/// What the resident memory may grow by after the first fifth: room for the allocator's pages, none for a
/// leak of a bit more than a tenth of a byte for each push of a full run.
constexpr std::int64_t kGrowthBoundKiB = 1024;

class NoLog final : public platform::Log {
  public:
    void write(std::string_view) noexcept override {}
};

std::shared_ptr<EncodablePicoproto> counterEvent() {
    picoproto_ctx_s* metric = picoproto_new("CounterMetric");
    picoproto_write_string_field(metric, 1, "app.started.cold.now");
    picoproto_write_varint_field(metric, 3, 1);
    return std::make_shared<EncodablePicoproto>(metric);
}

class Soak {
  public:
    explicit Soak(std::uint64_t pushes);

    /// Pushes everything, and then drains the queue with a server that has calmed down.
    void run();
    /// Prints what happened; true when all is as it must be.
    [[nodiscard]] bool report() const;

  private:
    std::uint64_t playRound(std::uint64_t round, std::uint64_t most);
    void catchUp();
    [[nodiscard]] const ProcessSize& sizeAt(std::uint64_t percent) const;
    [[nodiscard]] bool reportSizes() const;
    [[nodiscard]] bool reportRecords() const;
    [[nodiscard]] bool reportFile() const;

    const std::uint64_t pushes_;
    const std::shared_ptr<platform::testing::FakeClock> clock_ =
        std::make_shared<platform::testing::FakeClock>();
    const std::shared_ptr<platform::testing::TemporaryDirectories> directories_ =
        std::make_shared<platform::testing::TemporaryDirectories>();
    const std::shared_ptr<SequenceIds> bodies_ = std::make_shared<SequenceIds>();
    Ledger ledger_;
    std::shared_ptr<FlakyServer> server_;
    std::shared_ptr<AnalyticsEventsQueue> queue_;
    /// After each percent of the pushes, the first before all.
    std::vector<ProcessSize> sizes_;
    std::chrono::duration<double> duration_{};
};

Soak::Soak(std::uint64_t pushes) : pushes_(pushes), ledger_(pushes) {
    platform::Platform platform = platform::makeLinuxPlatform({.infoPlist = {}, .home = {}, .http = {}});
    server_ = std::make_shared<FlakyServer>(platform.queues->makeSerialQueue("server"), ledger_);
    platform.clock = clock_;
    platform.urlSession = server_;
    platform.directories = directories_;
    platform.log = std::make_shared<NoLog>();
    if (platform::install(std::move(platform)) != platform::InstallResult::installed) std::abort();
    queue_ = AnalyticsEventsQueue::create("/v1/soak", std::make_shared<QLPayloadProvider>(), kArchiveName,
                                          kMaxEventBuffer, bodies_);
    sizes_.reserve(101);
}

void Soak::run() {
    const auto start = SteadyClock::now();
    sizes_.push_back(processSize());
    std::uint64_t pushed = 0;
    for (std::uint64_t round = 1; pushed < pushes_; ++round) {
        pushed += playRound(round, pushes_ - pushed);
        while (sizes_.size() * pushes_ <= pushed * 100) sizes_.push_back(processSize());
    }
    server_->calmDown();
    clock_->advance(FlakyServer::kLongestDelayMillis / 1000.0 + 1.0);
    queue_->flushQueue();
    catchUp();
    duration_ = SteadyClock::now() - start;
}

std::uint64_t Soak::playRound(std::uint64_t round, std::uint64_t most) {
    const bool resignsActive = round % kRoundsPerSession == 0;
    const std::uint64_t pushes = std::min(most, resignsActive ? kPushesPerRound / 2 : kPushesPerRound);
    for (std::uint64_t i = 0; i < pushes; ++i) queue_->pushEvent(counterEvent());
    if (resignsActive) {
        platform::current().notificationCenter->post(platform::kWillResignActiveNotification);
    }
    catchUp();
    clock_->advance(kSecondsPerRound);
    return pushes;
}

void Soak::catchUp() {
    if (!platform::waitUntilIdle(kPatience)) {
        std::fputs("qlsdk_soak: the queue did not catch up\n", stderr);
        std::_Exit(1);
    }
}

const ProcessSize& Soak::sizeAt(std::uint64_t percent) const {
    return sizes_[static_cast<std::size_t>(percent)];
}

bool Soak::report() const {
    const double seconds = duration_.count();
    std::printf("%llu pushes in %.1f s, %.0f a second\n", static_cast<unsigned long long>(pushes_), seconds,
                static_cast<double>(pushes_) / seconds);
    const bool recordsAreRight = reportRecords();
    const bool sizesAreRight = reportSizes();
    const bool fileIsRight = reportFile();
    return recordsAreRight && sizesAreRight && fileIsRight;
}

bool Soak::reportRecords() const {
    std::uint64_t requests = 0;
    for (const std::uint64_t answers : server_->answers()) requests += answers;
    std::printf("%llu requests:", static_cast<unsigned long long>(requests));
    for (std::size_t kind = 0; kind < FlakyServer::kKinds; ++kind) {
        std::printf("%s %llu %s", kind == 0 ? "" : ",",
                    static_cast<unsigned long long>(server_->answers()[kind]),
                    std::string(FlakyServer::kKindNames[kind]).c_str());
    }
    const Ledger::Totals totals = ledger_.totals();
    std::printf(
        "\nrecords: %llu delivered, %llu refused, %llu dropped after their retry, %llu lost, %llu "
        "sent too often\n",
        static_cast<unsigned long long>(totals.delivered), static_cast<unsigned long long>(totals.refused),
        static_cast<unsigned long long>(totals.dropped), static_cast<unsigned long long>(totals.lost),
        static_cast<unsigned long long>(totals.wrong));
    const bool right = totals.lost == 0 && totals.wrong == 0;
    if (!right) std::puts("FAILED: records went astray");
    return right;
}

bool Soak::reportSizes() const {
    for (const std::uint64_t percent : {0, 10, 20, 50, 100}) {
        const ProcessSize& size = sizeAt(percent);
        std::printf("at %3d %%: %lld KiB resident, %lld descriptors, %lld threads\n",
                    static_cast<int>(percent), static_cast<long long>(size.residentKiB),
                    static_cast<long long>(size.descriptors), static_cast<long long>(size.threads));
    }
    const ProcessSize& settled = sizeAt(20);
    const auto largest = [this](std::int64_t ProcessSize::*field) {
        return (*std::max_element(
                   sizes_.begin() + 20, sizes_.end(),
                   [field](const ProcessSize& a, const ProcessSize& b) { return a.*field < b.*field; })).*
               field;
    };
    const std::int64_t growthKiB = largest(&ProcessSize::residentKiB) - settled.residentKiB;
    std::printf("resident memory grew by at most %lld KiB after 20 %%, of %lld KiB allowed\n",
                static_cast<long long>(growthKiB), static_cast<long long>(kGrowthBoundKiB));
    const bool right = growthKiB <= kGrowthBoundKiB &&
                       largest(&ProcessSize::descriptors) <= settled.descriptors &&
                       largest(&ProcessSize::threads) <= settled.threads;
    if (!right) std::puts("FAILED: the process grew");
    return right;
}

// The file that the next process would read: nothing waits in it, and its numbers go on.
bool Soak::reportFile() const {
    const auto archive = readQueueArchive(directories_->path() + "/" + kArchiveName);
    const auto files = std::distance(std::filesystem::directory_iterator(directories_->path()),
                                     std::filesystem::directory_iterator());
    const bool right =
        archive && archive->unsentEvents.empty() && archive->maxSequenceId == pushes_ && files <= 2;
    std::printf("files: %lld, %s\n", static_cast<long long>(files),
                right ? "the archive is empty and numbered" : "FAILED: not an empty archive and its spare");
    return right;
}

std::optional<std::uint64_t> pushesOf(int argc, char** argv) {
    std::uint64_t pushes = 10'000'000;
    if (argc == 1) return pushes;
    if (argc != 3 || std::string_view(argv[1]) != "--pushes") return std::nullopt;
    const char* end = argv[2] + std::strlen(argv[2]);
    const auto [rest, error] = std::from_chars(argv[2], end, pushes);
    if (error != std::errc() || rest != end || pushes < 1000) return std::nullopt;
    return pushes;
}

}  // namespace
}  // namespace qlsdk::soak

int main(int argc, char** argv) {
    const auto pushes = qlsdk::soak::pushesOf(argc, argv);
    if (!pushes) {
        std::fputs("usage: qlsdk_soak [--pushes N], with N of at least 1000\n", stderr);
        return 2;
    }
    qlsdk::soak::Soak soak(*pushes);
    soak.run();
    return soak.report() ? 0 : 1;
}
