// A host built without exceptions and type information: brings a port, queues an event, asks for the outcome.
#include <atomic>
#include <memory>

#include <QLSDKCoreKit/QLSDKCoreKit.h>

namespace {

class CountingLog final : public qlsdk::platform::Log {
  public:
    std::atomic<int> lines{0};
    void write(std::string_view) noexcept override { ++lines; }
};

}  // namespace

int main() {
    const auto log = std::make_shared<CountingLog>();
    qlsdk::platform::Platform mine;
    mine.log = log;
    if (install(std::move(mine)) != qlsdk::platform::InstallResult::installed) return 1;
    qlsdk::QLSDKHeartbeatEventsQueue::sharedInstance().addEvent({qlsdk::QLSDKKitTypeAccess, "1.0"});
    const bool idle = qlsdk::platform::waitUntilIdle(std::chrono::seconds(30));
    // Each request leaves one line.
    return idle && log->lines > 0 ? 0 : 1;
}
