// A host in which the n-th allocation fails, for every n: alone, or with all that follow. Each n has a
// process of its own, which must not end by it.

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <new>
#include <string>
#include <string_view>

#include "tests/faults/FailingAllocator.h"
#include "tests/faults/Scenarios.h"
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/events/internal/QueueArchive.h"
#include "QLSDKCoreKit/platform/linux/testing/Certificates.h"
#include "QLSDKCoreKit/platform/linux/testing/TlsServer.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"

namespace qlsdk::faults {
namespace {

namespace fs = std::filesystem;
using platform::testing_support::Certificates;
using platform::testing_support::Connection;
using platform::testing_support::TlsServer;

/// Libraries that crash when an allocation of theirs fails. libplist does not look at what it was given;
/// libcurl frees a name twice when it has no memory for a copy of it in its list of TLS sessions.
constexpr const char* kForeign[] = {"libplist", "libcurl"};

constexpr int kCrashed = 77;
constexpr int kComplained = 78;

/// What one process tells of itself, in memory that it shares with the test.
struct Report {
    Counts counts;
    Frames failed;
    int signal = 0;
    Frames crash;
    char complaint[128] = {};
};

struct Fault {
    Failing failing;
    Owner owner;
    std::uint64_t number;
};

std::string textOf(const Fault& fault) {
    return std::string(fault.failing == Failing::once ? "once" : "from then on") +
           (fault.owner == Owner::own ? ", own allocation " : ", foreign allocation ") +
           std::to_string(fault.number);
}

struct Shared {
    Status status{200};
    std::atomic<int> port{0};
    Report report;
};

Shared& shared() {
    static Shared& memory = *new (
        ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Shared;
    return memory;
}

constexpr int kCrashes[] = {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGALRM};

void reportCrash(int signal) {
    (void)stopFailing();
    shared().report.signal = signal;
    shared().report.crash.take();
    ::_exit(kCrashed);
}

void watchForCrashes() {
    // A stack that is full has no room for the handler.
    static char stack[65536];
    const stack_t alternate = {.ss_sp = stack, .ss_flags = 0, .ss_size = sizeof stack};
    ::sigaltstack(&alternate, nullptr);
    struct sigaction action = {};
    action.sa_handler = reportCrash;
    action.sa_flags = SA_ONSTACK;
    for (const int signal : kCrashes) ::sigaction(signal, &action, nullptr);
    ::alarm(60);  // A process that hangs dies of it.
}

int exitStatusOf(pid_t child) {
    int status = -1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

[[noreturn]] void serve(const std::string& directory) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const Certificates certificates(directory);
    static const auto http = [](int status, const std::string& body) {
        return "HTTP/1.1 " + std::to_string(status) +
               " Any\r\nX-Retry-After-Millis: 1\r\nContent-Length: " + std::to_string(body.size()) +
               "\r\n\r\n" + body;
    };
    const TlsServer server(certificates.serverContext(), [](Connection& connection) {
        for (std::string request; !(request = connection.readRequest()).empty();) {
            const bool asksForConfig = request.find("/v1/config") != std::string::npos;
            const std::string answer =
                asksForConfig ? http(200, R"({"data":{"config":{"search":{"deep":{"n":7,"s":"text"}}}}})")
                              : http(shared().status, "");
            if (!connection.write(answer)) return;
        }
    });
    const std::string address = server.address();
    shared().port = std::atoi(address.c_str() + address.find(':') + 1);
    shared().port.notify_all();
    for (;;) ::pause();
}

class AllocationFaults : public ::testing::TestWithParam<Scenario> {
  protected:
    void SetUp() override {
        // In a process of its own, as the test's must have no second thread and no library in use when it
        // forks.
        shared().port = 0;
        server_ = ::fork();
        if (server_ == 0) serve(directories_.path());
        while (shared().port == 0 && ::waitpid(server_, nullptr, WNOHANG) == 0) ::usleep(1000);
        setup_ = {.home = directories_.path() + "/home",
                  .connectTo = "127.0.0.1:" + std::to_string(shared().port),
                  .caFile = directories_.path() + "/ca.pem"};
        left_ = directories_.path() + "/left";
        fs::create_directory(left_);
        if (!GetParam().findsFiles) return;
        ASSERT_EQ(inProcess([this] { leaveFiles(setup_, shared().status); }), 0);
        fs::copy(setup_.home, left_, fs::copy_options::recursive);
    }
    void TearDown() override {
        ::kill(server_, SIGKILL);
        ::waitpid(server_, nullptr, 0);
    }

    template <typename Body>
    static int inProcess(Body body) {
        shared().report = {};
        const pid_t child = ::fork();
        if (child == 0) {
            watchForCrashes();
            body();
            ::_exit(0);
        }
        return exitStatusOf(child);
    }

    /// The host in a home of its own; how many allocations it made while they could fail.
    Counts runHost(Fault fault) {
        fs::remove_all(setup_.home);
        fs::copy(left_, setup_.home, fs::copy_options::recursive);
        const int status = inProcess([&] {
            Report& report = shared().report;
            GetParam().prepare(setup_, shared().status);
            failAllocation(fault.failing, fault.owner, fault.number, report.failed);
            GetParam().run(setup_);
            report.counts = stopFailing();
            const char* complaint = GetParam().complaint != nullptr ? GetParam().complaint(setup_) : nullptr;
            if (complaint == nullptr) complaint = complaintAfterwards(setup_, shared().status);
            if (complaint == nullptr) return;
            std::snprintf(report.complaint, sizeof report.complaint, "%s", complaint);
            ::_exit(kComplained);
        });
        if (status != 0) note(fault, status);
        checkFiles(fault);
        return shared().report.counts;
    }

    void note(const Fault& fault, int status);

    void checkFiles(const Fault& fault) const {
        for (const char* name : {"qlsdk-heartbeat.plist", "qlsdk-operational-metrics2.plist"}) {
            for (const auto& entry : fs::recursive_directory_iterator(setup_.home)) {
                if (entry.path().filename() != name) continue;
                EXPECT_TRUE(readQueueArchive(entry.path())) << name << " after " << textOf(fault);
            }
        }
    }

    const platform::testing::TemporaryDirectories directories_;
    HostSetup setup_;
    std::string left_;
    pid_t server_ = -1;
    /// Of each kind one is told in full.
    std::map<std::string, int> failures_;
    std::map<std::string, int> foreign_;
};

std::string objectOf(void* address) {
    Dl_info info{};
    return ::dladdr(address, &info) != 0 && info.dli_fname != nullptr ? info.dli_fname : "?";
}

/// The first library in a stack that is neither the C nor the C++ library, nor the program.
std::string foreignLibraryIn(const Frames& frames) {
    const std::string program = objectOf(reinterpret_cast<void*>(&foreignLibraryIn));
    for (int i = 0; i < frames.count; ++i) {
        const std::string name = fs::path(objectOf(frames.addresses[i])).filename();
        if (name == fs::path(program).filename()) {
            // The handler itself, and an allocation function.
            if (i < 3) continue;
            return {};
        }
        for (const char* library : kForeign) {
            if (name.starts_with(library)) return library;
        }
    }
    return {};
}

/// Object and offset of each frame, as addr2line takes them; names where the loader knows them.
std::string readable(const Frames& frames) {
    std::string text;
    for (int i = 0; i < frames.count; ++i) {
        Dl_info info{};
        if (::dladdr(frames.addresses[i], &info) == 0 || info.dli_fname == nullptr) continue;
        const auto offset = static_cast<char*>(frames.addresses[i]) - static_cast<char*>(info.dli_fbase);
        char line[256];
        std::snprintf(line, sizeof line, "  %s 0x%tx %s\n", fs::path(info.dli_fname).filename().c_str(),
                      offset, info.dli_sname != nullptr ? info.dli_sname : "");
        text += line;
    }
    return text;
}

void AllocationFaults::note(const Fault& fault, int status) {
    const Report& report = shared().report;
    if (status == kCrashed) {
        const std::string library = foreignLibraryIn(report.crash);
        // Of those that follow the first nobody takes a note.
        const bool isTheirs =
            fault.failing == Failing::fromThenOn || foreignLibraryIn(report.failed) == library;
        if (!library.empty() && isTheirs) {
            ++foreign_[library];
            return;
        }
    }
    std::string key = report.complaint + std::to_string(report.signal);
    for (int i = 0; i < std::min(report.crash.count, 14); ++i) {
        key += objectOf(report.crash.addresses[i]) +
               std::to_string(reinterpret_cast<std::uintptr_t>(report.crash.addresses[i]));
    }
    if (failures_[key]++ != 0) return;
    ADD_FAILURE() << textOf(fault) << ": status " << status << " signal " << report.signal << " "
                  << report.complaint << "\ncrash:\n"
                  << readable(report.crash) << "first that failed:\n"
                  << readable(report.failed);
}

// QLSDK_ALL_FAULTS: "own" tries each of ours, "foreign" those of others, too; otherwise samples of both.
std::uint64_t strideFor(Owner owner, std::uint64_t count) {
    const char* wanted = std::getenv("QLSDK_ALL_FAULTS");
    const std::string_view all = wanted != nullptr ? wanted : "";
    if (all == "foreign" || (all == "own" && owner == Owner::own)) return 1;
    const std::uint64_t samples = owner == Owner::own ? QLSDK_FAULTS_SAMPLES : QLSDK_FAULTS_SAMPLES / 4;
    return count / samples + 1;
}

TEST_P(AllocationFaults, NeverEndTheHost) {
    // Without a failure: how many there are.
    const Counts counts = runHost({Failing::once, Owner::own, UINT64_MAX});
    ASSERT_GT(counts.own, 5U);
    for (const Owner owner : {Owner::own, Owner::foreign}) {
        const std::uint64_t count = owner == Owner::own ? counts.own : counts.foreign;
        for (const Failing failing : {Failing::once, Failing::fromThenOn}) {
            for (std::uint64_t number = 1; number <= count; number += strideFor(owner, count)) {
                runHost({failing, owner, number});
            }
        }
    }
    RecordProperty("OwnAllocations", static_cast<int>(counts.own));
    RecordProperty("ForeignAllocations", static_cast<int>(counts.foreign));
    for (const auto& [library, times] : foreign_) RecordProperty(library, times);
}

INSTANTIATE_TEST_SUITE_P(Hosts, AllocationFaults, ::testing::ValuesIn(scenarios().begin(), scenarios().end()),
                         [](const auto& scenario) { return std::string(scenario.param.name); });

}  // namespace
}  // namespace qlsdk::faults

/// In place of the C library's: the library's threads block every signal, and what crashes on one of them
/// ends without a word. Here they tell where.
extern "C" int pthread_sigmask(int how, const sigset_t* signals, sigset_t* before) noexcept {
    sigset_t left;
    if (signals != nullptr) {
        left = *signals;
        for (const int signal : qlsdk::faults::kCrashes) {
            if (how != SIG_UNBLOCK) ::sigdelset(&left, signal);
        }
    }
    return ::sigprocmask(how, signals != nullptr ? &left : nullptr, before) == 0 ? 0 : errno;
}
