#include <string>

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/linux/testing/Certificates.h"
#include "QLSDKCoreKit/platform/linux/testing/TlsServer.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"

namespace qlsdk::platform {

// What hangs or crashes is told by the host on the standard error. Several hosts, because what is made once
// is made while the first children are forked.
TEST(ProcessFork, NoChildOfAHostThatUsesEverythingAtOnceHangs) {
    testing::TemporaryDirectories directories;
    const testing_support::Certificates certificates(directories.path());
    testing_support::TlsServer server(
        certificates.serverContext(),
        testing_support::answering("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"));
    constexpr int kHosts = 10;
    for (int i = 0; i < kHosts; ++i) {
        testing::TemporaryDirectories home;
        std::string texts[] = {QLSDK_FORK_HOST, "12", home.path(), server.address(), certificates.caFile()};
        char* arguments[] = {texts[0].data(), texts[1].data(), texts[2].data(),
                             texts[3].data(), texts[4].data(), nullptr};
        pid_t host = -1;
        ASSERT_EQ(posix_spawn(&host, arguments[0], nullptr, nullptr, arguments, environ), 0);
        int status = -1;
        ASSERT_EQ(waitpid(host, &status, 0), host);
        ASSERT_EQ(status, 0) << "host " << i;
    }
}

}  // namespace qlsdk::platform
