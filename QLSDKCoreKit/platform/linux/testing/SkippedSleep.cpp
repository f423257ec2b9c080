#include "QLSDKCoreKit/platform/linux/testing/SkippedSleep.h"

#include <atomic>

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace qlsdk::platform::testing_support {

namespace {

using std::chrono::nanoseconds;

std::atomic<SkippedSleep*> theSkippedSleep{nullptr};
// What the steady clock is ahead of the system's. It stays, so that the clock never goes back.
std::atomic<nanoseconds> ahead{};
std::atomic<nanoseconds> stoodStillAt{};

nanoseconds systemsClock() {
    timespec time{};
    ::syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &time);
    return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

nanoseconds steadyClock() {
    return (theSkippedSleep != nullptr ? stoodStillAt.load() : systemsClock()) + ahead.load();
}

}  // namespace

SkippedSleep::SkippedSleep(std::function<void(nanoseconds)> meanwhile)
    : meanwhile_(std::move(meanwhile)), before_(ahead) {
    stoodStillAt = systemsClock();
    theSkippedSleep = this;
}

SkippedSleep::~SkippedSleep() {
    theSkippedSleep = nullptr;
}

nanoseconds SkippedSleep::slept() const {
    return ahead.load() - before_;
}

void SkippedSleep::sleep(nanoseconds time) {
    ahead = ahead.load() + time;
    if (meanwhile_) meanwhile_(slept());
}

}  // namespace qlsdk::platform::testing_support

using namespace qlsdk::platform::testing_support;

extern "C" {
[[gnu::visibility("default")]] int nanosleep(const timespec* wanted, timespec* left) {
    if (theSkippedSleep == nullptr) return static_cast<int>(::syscall(SYS_nanosleep, wanted, left));
    theSkippedSleep.load()->sleep(std::chrono::seconds(wanted->tv_sec) + nanoseconds(wanted->tv_nsec));
    return 0;
}

[[gnu::visibility("default")]] int clock_gettime(clockid_t clock, timespec* time) noexcept {
    if (clock != CLOCK_MONOTONIC) return static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
    const nanoseconds now = steadyClock();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(now);
    time->tv_sec = seconds.count();
    time->tv_nsec = (now - seconds).count();
    return 0;
}
}
