// Every way in which a host's surroundings can be wrong, met for real and through the public calls. The kit's
// shared objects and what it has met live as long as the process, so each case wants a process of its own.

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string_view>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/QLSDKCoreKit.h"
#include "QLSDKCoreKit/platform/linux/LinuxPlatform.h"
#include "QLSDKCoreKit/platform/linux/testing/Certificates.h"
#include "QLSDKCoreKit/platform/linux/testing/TlsServer.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"

// In the C library's place: no descriptor is left for the archive of the metrics, and only for that. A limit
// on all descriptors would meet the sanitizers' own.
static std::atomic<bool> metricsAreRefused{false};

extern "C" int open(const char* path, int flags, ...) {
    if (metricsAreRefused && std::string_view(path).ends_with("/qlsdk-operational-metrics2.plist")) {
        errno = EMFILE;
        return -1;
    }
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = static_cast<mode_t>((flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0);
    va_end(arguments);
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

namespace qlsdk::platform {

namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using testing_support::CertificateFlaw;
using testing_support::Certificates;
using testing_support::Connection;
using testing_support::TlsServer;

constexpr const char* kApp = "com.example.told";
constexpr const char* kBody = "<secret/>";

/// A host and the directory that everything of its lies in.
struct Scene {
    const testing::TemporaryDirectories directory;
    const std::string home = directory.path() + "/home";
    const std::string caches = home + "/cache/" + kApp;
    Certificates certificates{directory.path()};
    LinuxPlatformOptions options;
    std::unique_ptr<TlsServer> server;
    // Around what the library's threads tell.
    std::mutex mutex;

    Scene() {
        options.home = home;
        options.infoDictionary =
            Dictionary{{"CFBundleIdentifier", kApp}, {"CFBundleVersion", "1"}, {"QLSDKClientId", "abc"}};
        options.http.connectTo = "127.0.0.1:1";
        options.http.proxy = "";
    }

    void writeFile(const std::string& path, std::string_view content) const {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path) << content;
    }

    /// A server that answers 200 with a body that is nobody's to tell.
    void serve(CertificateFlaw flaw = CertificateFlaw::none) {
        server = std::make_unique<TlsServer>(certificates.serverContext(flaw), [](Connection& connection) {
            while (!connection.readRequest().empty()) {
                connection.write("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n" + std::string(kBody));
            }
        });
        options.http.connectTo = server->address();
        options.http.caFile = certificates.caFile();
    }
};

void sendHeartbeat(Scene&) {
    QLSDKHeartbeatEventsQueue::sharedInstance().addEvent({QLSDKKitTypeSharing, "1.0"});
}

void recordMetric(Scene&) {
    QLSDKOperationalMetricsQueue::sharedInstance().addCount(1, "name");
}

struct Case {
    const char* name;
    void (*prepare)(Scene&);
    void (*act)(Scene&);
    DiagnosticKind kind;
    const char* cause;
    int errorNumber = 0;
    /// Below the scene's directory.
    const char* path = "";
    const char* detail = "";
};

const Case kCases[] = {
    {"Offline", [](Scene&) {}, sendHeartbeat, DiagnosticKind::requestFailed, "connect", ECONNREFUSED, "",
     "127.0.0.1"},
    {"AuthorityMadeAnew",
     [](Scene& it) {
         it.serve();
         it.writeFile(it.directory.path() + "/other/none", "");
         it.options.http.caFile = Certificates(it.directory.path() + "/other").caFile();
     },
     sendHeartbeat, DiagnosticKind::certificate, "another key", 0, "/other/ca.pem", "error:"},
    {"UntrustedServer", [](Scene& it) { it.serve(CertificateFlaw::selfSigned); }, sendHeartbeat,
     DiagnosticKind::certificate, "certificate", 0, "/ca.pem", "certificate"},
    {"MissingAuthority",
     [](Scene& it) {
         it.serve();
         it.options.http.caFile = it.directory.path() + "/none.pem";
     },
     sendHeartbeat, DiagnosticKind::certificate, "", 0, "/none.pem"},
    {"ConnectToWithoutPort", [](Scene& it) { it.options.http.connectTo = "localhost"; }, sendHeartbeat,
     DiagnosticKind::invalidOption, "HOST:PORT", 0, "", "localhost"},
    {"UnwritableHome",
     [](Scene& it) {
         it.writeFile(it.directory.path() + "/file", "");
         it.options.home = it.directory.path() + "/file/home";
     },
     sendHeartbeat, DiagnosticKind::stateDirectory, "no files can be made here", ENOTDIR,
     "/file/home/cache/com.example.told"},
    {"MissingPropertyList",
     [](Scene& it) {
         it.options.infoDictionary = {};
         it.options.infoPlist = it.directory.path() + "/none.plist";
     },
     sendHeartbeat, DiagnosticKind::propertyList, "missing", ENOENT, "/none.plist"},
    {"BrokenPropertyList",
     [](Scene& it) {
         it.options.infoDictionary = {};
         it.options.infoPlist = it.directory.path() + "/broken.plist";
         it.writeFile(*it.options.infoPlist, "<plist");
     },
     sendHeartbeat, DiagnosticKind::propertyList, "no property list", 0, "/broken.plist"},
    {"NoClientId",
     [](Scene& it) {
         it.options.infoDictionary = Dictionary{{"CFBundleIdentifier", kApp}};
     },
     [](Scene&) { (void)QLSDKClientSetup::sharedInstance(); }, DiagnosticKind::propertyList, "QLSDKClientId",
     0, "/linux"},
    {"UnreadableArchive",
     [](Scene& it) { it.writeFile(it.caches + "/qlsdk-operational-metrics2.plist", std::string(100, 'x')); },
     [](Scene& it) {
         metricsAreRefused = true;
         recordMetric(it);
         ASSERT_TRUE(waitUntilIdle(std::chrono::minutes(1)));
         metricsAreRefused = false;
     },
     DiagnosticKind::unreadableFile, "cannot be read", EMFILE, "/qlsdk-operational-metrics2.plist"},
    {"DamagedArchive",
     [](Scene& it) { it.writeFile(it.caches + "/qlsdk-operational-metrics2.plist", "bplist00"); },
     recordMetric, DiagnosticKind::damagedFile, "cannot be decoded", 0, "/qlsdk-operational-metrics2.plist"},
    {"DroppedRecord", [](Scene&) {},
     [](Scene&) { QLSDKOperationalMetricsQueue::sharedInstance().addCount(1, std::string(200'000, 'n')); },
     DiagnosticKind::records, "dropped"},
    {"AnswerOfAnotherShape", [](Scene& it) { it.serve(); },
     [](Scene&) {
         QLSDKDynamicConfigManager::shared().updateIfNecessary(
             std::make_shared<const DynamicConfigCallback>([](bool) {}));
     },
     DiagnosticKind::serverAnswer, "holds no object"},
    {"ClockThatWentBack", [](Scene&) {},
     [](Scene& it) {
         const double tomorrow = current().clock->secondsSince1970() + 86'400;
         current().userDefaults->setObjectForKey(Date{tomorrow},
                                                 "com.quillo.quill-kit.heartbeat.SHARING_KIT");
         sendHeartbeat(it);
     },
     DiagnosticKind::clock, "in the future"},
};

class LinuxDiagnostics : public ::testing::TestWithParam<Case> {};

}  // namespace

TEST_P(LinuxDiagnostics, TellWhatAPersonCanActOn) {
    const Case& it = GetParam();
    Scene scene;
    it.prepare(scene);
    Platform platform = makeLinuxPlatform(scene.options);
    std::vector<Diagnostic> heard;
    platform.controls.diagnostics = [&](const Diagnostic& diagnostic) {
        const std::lock_guard lock(scene.mutex);
        heard.push_back(diagnostic);
    };
    ASSERT_EQ(install(std::move(platform)), InstallResult::installed);
    it.act(scene);
    ASSERT_TRUE(waitUntilIdle(std::chrono::minutes(1)));

    const std::lock_guard lock(scene.mutex);
    bool isTold = false;
    for (const Diagnostic& each : heard) {
        const std::string line = diagnosticLine(each);
        EXPECT_THAT(line, Not(HasSubstr(kBody)));
        EXPECT_THAT(line, Not(HasSubstr("v2:")));
        isTold |= each.kind == it.kind && each.errorNumber == it.errorNumber &&
                  each.cause.find(it.cause) != std::string::npos && each.path.ends_with(it.path) &&
                  each.path.empty() == (*it.path == '\0') && each.detail.find(it.detail) != std::string::npos;
    }
    EXPECT_TRUE(isTold);
    if (!isTold)
        for (const Diagnostic& each : heard) ADD_FAILURE() << diagnosticLine(each);
}

INSTANTIATE_TEST_SUITE_P(Told, LinuxDiagnostics, ::testing::ValuesIn(kCases),
                         [](const auto& each) { return each.param.name; });

TEST(DiagnosticsOnStderr, AreOneLineEachWhereTheEnvironmentAsksForThem) {
    for (const auto& [wish, isListening] :
         {std::pair("stderr", true), {"", false}, {"1", false}, {"stderr ", false}}) {
        ASSERT_EQ(::setenv("QLSDK_DIAGNOSTICS", wish, 1), 0);
        EXPECT_EQ(makeLinuxPlatform({}).diagnostics->isListening(), isListening) << wish;
    }
    ASSERT_EQ(::unsetenv("QLSDK_DIAGNOSTICS"), 0);
    const auto sink = makeLinuxPlatform({}).diagnostics;
    EXPECT_FALSE(sink->isListening());
    ::testing::internal::CaptureStderr();
    sink->tell({DiagnosticKind::failedWrite, "torn", ENOSPC, "/a\nb", "late"});
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "QLSDKCoreKit: failedWrite: torn: /a\\nb: late: No space left on device (errno 28)\n");
}

TEST(DiagnosticsAcrossFork, AreToldInTheChildWhoseParentWasTellingOthers) {
    Platform platform = makeLinuxPlatform({});
    std::atomic<int> heard{0};
    std::atomic<bool> isHeld{true};
    platform.controls.diagnostics = [&](const Diagnostic&) {
        ++heard;
        while (isHeld) std::this_thread::yield();
    };
    ASSERT_EQ(install(std::move(platform)), InstallResult::installed);
    reportDiagnostic({DiagnosticKind::random, "met by the parent"});
    while (heard == 0) std::this_thread::yield();
    const pid_t child = ::fork();
    if (child == 0) {
        isHeld = false;
        reportDiagnostic({DiagnosticKind::random, "met by the child"});
        ::_exit(waitUntilIdle(std::chrono::minutes(1)) && heard == 2 ? 0 : 1);
    }
    isHeld = false;
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(waitUntilIdle(std::chrono::minutes(1)));
    EXPECT_EQ(heard, 1);
}

}  // namespace qlsdk::platform
