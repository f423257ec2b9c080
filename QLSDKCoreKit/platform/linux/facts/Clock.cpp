#include "QLSDKCoreKit/platform/Clock.h"

#include <ctime>

#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"

namespace qlsdk::platform {

namespace {

class LinuxClock final : public Clock {
  public:
    double secondsSince1970() noexcept override {
        // Cannot fail: the clock always exists and the pointer is good.
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
    }
};

}  // namespace

std::shared_ptr<Clock> makeLinuxClock() {
    return std::make_shared<LinuxClock>();
}

}  // namespace qlsdk::platform
