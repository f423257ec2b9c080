#include "QLSDKCoreKit/platform/linux/testing/Threads.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <signal.h>

namespace qlsdk::platform::testing_support {

namespace {

std::string nameOf(const std::filesystem::path& thread) {
    std::string name;
    std::getline(std::ifstream(thread / "comm"), name);
    return name;
}

}  // namespace

std::size_t threadsNamed(const std::string& beginning) {
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return static_cast<std::size_t>(std::count_if(begin(threads), end(threads), [&](const auto& thread) {
        return nameOf(thread.path()).starts_with(beginning);
    }));
}

std::string openSignals() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    std::string open;
    for (int number = 1; number < NSIG; ++number) {
        // Neither can be blocked, and the C library keeps the two after them for itself.
        if (number == SIGKILL || number == SIGSTOP || number == 32 || number == 33) continue;
        if (sigismember(&mask, number) == 0) open += std::to_string(number) + " ";
    }
    return open;
}

std::uint64_t pendingProcessSignals() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "ShdPnd:" && status >> word) return std::stoull(word, nullptr, 16);
    }
    return ~std::uint64_t{0};
}

}  // namespace qlsdk::platform::testing_support
