#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "QLSDKCoreKit/platform/desktop/DesktopAdapters.h"
#include "QLSDKCoreKit/platform/desktop/DesktopPlatform.h"
#include "QLSDKCoreKit/platform/desktop/testing/SessionBus.h"
#include "QLSDKCoreKit/platform/testing/FakeFacts.h"
#include "QLSDKCoreKit/platform/testing/ManualQueues.h"

namespace qlsdk::platform {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;

/// A desktop with handlers for some schemes of ours, in the session's own data directory.
class GioApplication : public ::testing::Test {
  protected:
    static constexpr const char* kLink = "quillo://camera/1?metadata=e30%3D&link='a b'&x=$HOME;\"%u\"";

    GioApplication() {
        fs::create_directories(data_ + "/applications");
        ::mkfifo(fifo_.c_str(), 0600);
        // No shell script: shells begin by clearing the signal mask themselves.
        std::ofstream(data_ + "/handler.py")
            << "import sys\n"
            << "mask = [line for line in open('/proc/self/status') if line.startswith('SigBlk')]\n"
            << "open('" << fifo_ << "', 'w').write(sys.argv[1] + '\\n' + mask[0])\n";
        addHandler("recorder", "quillo", "Exec=python3 " + data_ + "/handler.py %u");
        addHandler("homeless", "quillo-homeless", "Exec=/bin/true %u\nPath=/nonexistent");
        addHandler("com.example.Quillo", "quillo-bus", "Exec=/bin/true %u\nDBusActivatable=true");
        std::ofstream(data_ + "/applications/mimeapps.list")
            << "[Default Applications]\nx-scheme-handler/quillo=recorder.desktop\n"
            << "x-scheme-handler/quillo-homeless=homeless.desktop\n"
            << "x-scheme-handler/quillo-bus=com.example.Quillo.desktop\n";
    }

    void addHandler(const std::string& name, const std::string& scheme, const std::string& start) {
        std::ofstream(data_ + "/applications/" + name + ".desktop")
            << "[Desktop Entry]\nType=Application\nName=" << name << "\nMimeType=x-scheme-handler/" << scheme
            << ";\n"
            << start << "\n";
    }

    /// The outcome that the completion heard; pumps the main queue until then.
    bool open(const std::string& url) {
        const auto main = platform_.queues->mainQueue();
        int calls = 0;
        bool outcome = false;
        application_->openUrl(url, {}, [&](bool success) {
            EXPECT_TRUE(main->isCurrent());
            outcome = success;
            ++calls;
            main->stop();
        });
        main->run();
        EXPECT_TRUE(waitUntilIdle());
        main->drain();
        EXPECT_EQ(calls, 1);
        return outcome;
    }
    bool waitUntilIdle() { return platform_.activity->waitUntilIdle(std::chrono::seconds(60)); }

    /// What the handler was given, and the signals it started with; waits for the handler to say.
    std::string report() {
        std::ifstream stream(fifo_);
        return std::string(std::istreambuf_iterator<char>(stream), {});
    }

    const std::string data_ = ::getenv("XDG_DATA_HOME");
    const std::string fifo_ = data_ + "/fifo";
    const Platform platform_ = makeDesktopPlatform();
    const std::shared_ptr<Application> application_ = platform_.application;
};

TEST_F(GioApplication, HandsTheLinkToTheHandlerWithASignalMaskThatBlocksNothing) {
    EXPECT_EQ(application_->openCall(), OpenCall::modern);
    const std::string expected = std::string(kLink) + "\nSigBlk:\t0000000000000000\n";
    EXPECT_TRUE(open(kLink));
    EXPECT_EQ(report(), expected);
    EXPECT_TRUE(application_->openUrl(kLink));
    EXPECT_EQ(report(), expected);
    application_->openUrl(kLink, {}, nullptr);
    EXPECT_EQ(report(), expected);
}

TEST_F(GioApplication, ReportsALaunchThatFails) {
    for (const char* url : {"quillo-unknown://x", "quillo-homeless://x", "no link", "", "://"}) {
        EXPECT_FALSE(open(url)) << url;
        EXPECT_FALSE(application_->openUrl(url)) << url;
    }
    EXPECT_FALSE(open(std::string("quillo://x\0y", 12)));
}

TEST_F(GioApplication, CanOpenWhatHasADefaultHandler) {
    for (const char* url : {"quillo://", "QUILLO://camera/1", "quillo-bus:x"}) {
        EXPECT_TRUE(application_->canOpenUrl(url)) << url;
    }
    for (const char* url : {"quilloaccesskitv1://", "quillo", "", "quillo /x"}) {
        EXPECT_FALSE(application_->canOpenUrl(url)) << url;
    }
}

using GioApplicationOnABus = GioApplication;

// Of a handler that the bus starts, the bus says whether it took the link.
TEST_F(GioApplicationOnABus, AsksItForAHandlerThatLivesThere) {
    EXPECT_FALSE(open("quillo-bus://x"));
    testing::SessionBus handler;
    handler.serve("com.example.Quillo");
    EXPECT_TRUE(open("quillo-bus://x"));
    EXPECT_THAT(handler.callsUntil("org.freedesktop.Application.Open"),
                Contains("org.freedesktop.Application.Open"));
}

TEST_F(GioApplication, RunsInTheDirectionOfTheUsersLanguage) {
    const auto locale = std::make_shared<testing::FakeLocale>();
    const auto application = makeGioApplication(std::make_shared<testing::ManualQueues>(), locale);
    const auto direction = [&](std::optional<std::string> language) {
        locale->language = std::move(language);
        return application->userInterfaceLayoutDirection();
    };
    for (const char* language : {"ar", "he", "fa", "ur", "yi"}) {
        EXPECT_EQ(direction(language), LayoutDirection::rightToLeft) << language;
    }
    for (const char* language : {"en", "de", "art", "C"}) {
        EXPECT_EQ(direction(language), LayoutDirection::leftToRight) << language;
    }
    EXPECT_EQ(direction(std::nullopt), LayoutDirection::leftToRight);
    EXPECT_EQ(application->keyWindowRootViewController(), nullptr);
}

}  // namespace
}  // namespace qlsdk::platform
