#include <filesystem>
#include <fstream>
#include <sstream>

#include "tools/testing/RunningCollector.h"
#include <gtest/gtest.h>
#include <signal.h>

namespace quillkit {
namespace {

using testing::RunningCollector;
using testing::runToEnd;

std::string contentOf(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

/// Starts a collector on the state, lets curl verify it and ends it.
void serveOnce(const std::string& state) {
    RunningCollector collector({}, state);
    EXPECT_EQ(collector.authorityFile(), state + "/ca.pem");
    EXPECT_EQ(collector.post("/v1/sdk/heartbeat", "").output, "200");
    for (const char* host : {"localhost", "127.0.0.1"}) {
        const std::string port = collector.address().substr(collector.address().rfind(':') + 1);
        EXPECT_EQ(runToEnd({"curl", "--silent", "--noproxy", "*", "--cacert", collector.authorityFile(),
                            "--write-out", "%{http_code}", std::string("https://") + host + ":" + port + "/"})
                      .output,
                  "404");
    }
    EXPECT_EQ(runToEnd({"openssl", "verify", "-x509_strict", "-purpose", "sslserver", "-CAfile",
                        state + "/ca.pem", state + "/server.pem"})
                  .exitStatus,
              0);
}

class Certificates : public ::testing::Test {
  protected:
    qlsdk::platform::testing::TemporaryDirectories directory_;
    const std::string state_ = directory_.path() + "/state";
    const std::string authority_ = state_ + "/ca.pem";
    const std::string authorityKey_ = state_ + "/ca-key.pem";
    const std::string server_ = state_ + "/server.pem";
};

TEST_F(Certificates, AreKeptForTheNextStart) {
    serveOnce(state_);
    const std::string authority = contentOf(authority_);
    const std::string server = contentOf(server_);
    serveOnce(state_);
    EXPECT_EQ(contentOf(authority_), authority);
    EXPECT_EQ(contentOf(server_), server);
    for (const std::string& file : {authorityKey_, server_}) {
        EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600)) << file;
    }
    EXPECT_EQ(std::filesystem::status(state_).permissions(), std::filesystem::perms(0700));
}

TEST_F(Certificates, AreMadeAnewWhenDamaged) {
    serveOnce(state_);
    const std::string authority = contentOf(authority_);
    testing::writeFile(server_, "damaged");
    serveOnce(state_);
    EXPECT_EQ(contentOf(authority_), authority);
    testing::writeFile(authorityKey_, "damaged");
    serveOnce(state_);
    EXPECT_NE(contentOf(authority_), authority);
}

TEST_F(Certificates, AreMadeAnewWhenTheyExpire) {
    std::filesystem::create_directory(state_);
    // A day is the least that openssl gives, and too little to go on with.
    ASSERT_EQ(
        runToEnd({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                  "-days", "1", "-subj", "/CN=old", "-keyout", authorityKey_, "-out", authority_})
            .exitStatus,
        0);
    const std::string expired = contentOf(authority_);
    serveOnce(state_);
    EXPECT_NE(contentOf(authority_), expired);
}

}  // namespace
}  // namespace quillkit
