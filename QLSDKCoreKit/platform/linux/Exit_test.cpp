#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/linux/testing/Certificates.h"
#include "QLSDKCoreKit/platform/linux/testing/TlsServer.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"

namespace qlsdk::platform {

namespace {

using testing_support::answering;
using testing_support::Certificates;
using testing_support::Connection;
using testing_support::TlsServer;

// A program that watches the host, with its options: a memory checker. It is told apart by spaces.
std::vector<char*> runner() {
    const char* named = std::getenv("QLSDK_EXIT_RUNNER");
    std::vector<char*> words;
    if (named == nullptr) return words;
    static std::string text;
    text = named;
    for (char* word = std::strtok(text.data(), " "); word != nullptr; word = std::strtok(nullptr, " "))
        words.push_back(word);
    return words;
}

int runHost(const std::vector<std::string>& texts) {
    std::vector<char*> arguments = runner();
    for (const std::string& text : texts) arguments.push_back(const_cast<char*>(text.c_str()));
    arguments.push_back(nullptr);
    pid_t child = -1;
    posix_spawn(&child, arguments[0], nullptr, nullptr, arguments.data(), environ);
    int status = -1;
    if (child != -1) waitpid(child, &status, 0);
    return status;
}

int endHost(const char* way, const char* who, const std::string& connectTo, const std::string& caFile,
            int round) {
    // Each round ends at another moment of the handshakes and uploads.
    const std::string pause = std::to_string(round * 137 % 3'000);
    return runHost({QLSDK_EXIT_HOST, way, who, connectTo, caFile, pause});
}

TlsServer::Script closing() {
    return [](Connection& connection) {
        if (!connection.readRequest().empty())
            connection.write("HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    };
}

struct Case {
    const char* way;
    const char* who;
};

void PrintTo(const Case& one, std::ostream* out) {
    *out << one.way << " " << one.who;
}

using ProcessExit = ::testing::TestWithParam<Case>;

INSTANTIATE_TEST_SUITE_P(Ways, ProcessExit,
                         ::testing::Values(Case{"return", "kit"}, Case{"return", "host"},
                                           Case{"exit", "host"}, Case{"thread", "host"},
                                           Case{"thread", "kit"}, Case{"quick_exit", "host"},
                                           Case{"_exit", "host"}, Case{"signal", "kit"},
                                           Case{"cleanup", "host"}, Case{"cleanup", "kit"}));

}  // namespace

TEST_P(ProcessExit, NeitherCrashesNorHangsNorWaitsForMoreThanTheWorkInProgress) {
    testing::TemporaryDirectories directories;
    const Certificates certificates(directories.path());
    const auto stall = [](Connection& connection) { connection.waitForPeer(); };
    const auto reset = [](Connection& connection) { connection.resetOnClose(); };
    TlsServer answers(certificates.serverContext(),
                      answering("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"));
    TlsServer resets(certificates.serverContext(), reset);
    TlsServer holds(certificates.serverContext(), stall, TlsServer::Handshake::ignored);
    TlsServer stalls(certificates.serverContext(), stall);
    TlsServer* const servers[] = {&answers, &resets, &holds, &stalls};

    const auto [way, who] = GetParam();
    const int expected = std::string(way) == "signal" ? SIGTERM : 0;
    const int rounds = std::getenv("QLSDK_EXIT_RUNNER") != nullptr ? 1 : QLSDK_EXIT_ROUNDS;
    for (int round = 0; round < rounds; ++round) {
        const std::string address = servers[round % 4]->address();
        ASSERT_EQ(endHost(way, who, address, certificates.caFile(), round), expected) << "round " << round;
    }
}

TEST(ProcessEnd, WaitsForALibraryHoweverSlowBeforeItIsTornDown) {
    testing::TemporaryDirectories directories;
    const Certificates certificates(directories.path());
    TlsServer server(certificates.serverContext(), closing());
    for (const char* call : {"SSL_connect", "SSL_write", "SSL_CTX_new", "connect"}) {
        for (const char* way : {"return", "exit", "thread", "cleanup"})
            EXPECT_EQ(endHost(way, call, server.address(), certificates.caFile(), 1), 0) << call << way;
    }
}

TEST(ProcessEnd, ComesAllTheSameWhenAThreadNeverMovesAgain) {
    testing::TemporaryDirectories directories;
    const Certificates certificates(directories.path());
    TlsServer server(certificates.serverContext(), closing());
    for (const char* who : {"stopped", "endless"}) {
        for (const char* way : {"return", "thread", "cleanup"})
            EXPECT_EQ(endHost(way, who, server.address(), certificates.caFile(), 1), 0) << who << way;
    }
}

TEST(ProcessFork, ChildOfABusyParentCanSend) {
    testing::TemporaryDirectories directories;
    const Certificates certificates(directories.path());
    // Every answer closes, so that the parent is in a handshake most of the time.
    TlsServer server(certificates.serverContext(), closing());
    EXPECT_EQ(runHost({QLSDK_EXIT_HOST, "fork", "40", server.address(), certificates.caFile()}), 0);
}

}  // namespace qlsdk::platform
