#include "tools/page/PageServer.h"

#include <optional>

#include "tools/collector/Collector.h"
#include "tools/page/PageAssets.h"
#include "tools/testing/RunningCollector.h"
#include "tools/testing/ServedRequests.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quillkit {
namespace {

using ::testing::HasSubstr;
using testing::runToEnd;
using testing::Subprocess;

class Page : public ::testing::Test {
  protected:
    /// Starts the server; gives its origin, a slash and the token.
    std::string serve() {
        server_.emplace(parts_, 0);
        std::string url = server_->url();
        return url.erase(url.find("?token="), std::string("?token=").size());
    }
    [[nodiscard]] static std::vector<std::string> curl(const std::string& url,
                                                       std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"curl", "--silent", "--no-buffer", "--noproxy", "*"});
        options.push_back(url);
        return options;
    }
    [[nodiscard]] static std::string readUntil(Subprocess& process, const std::string& beginning) {
        while (const auto line = process.nextLine()) {
            if (line->starts_with(beginning)) return *line;
        }
        return "";
    }

    AnswerScript script_{{}};
    ConfigSource config_{std::nullopt};
    ChangeCondition changes_;
    StalledRequests stalls_{changes_};
    RequestRing requests_;
    const CollectorParts parts_{"127.0.0.1:1", script_, config_, stalls_, requests_, changes_};
    PageControls controls_{parts_};
    std::optional<PageServer> server_;
};

TEST_F(Page, StreamsEventsUntilTheServerEnds) {
    requests_.add(testing::served("/v1/config", "{}"));
    const std::string own = serve();
    Subprocess fresh(curl(own + "/events"));
    Subprocess returning(curl(own + "/events", {"--header", "Last-Event-ID: 1"}));
    EXPECT_EQ(readUntil(fresh, "id:"), "id: 1");
    EXPECT_THAT(readUntil(returning, "data:"), HasSubstr("127.0.0.1:1"));
    requests_.add(testing::served("/v1/config", "{}"));
    changes_.notify();
    EXPECT_EQ(readUntil(fresh, "id:"), "id: 2");
    EXPECT_EQ(readUntil(returning, "id:"), "id: 2");
    server_.reset();
    EXPECT_EQ(fresh.nextLine().value_or("").substr(0, 5), "data:");
    EXPECT_EQ(readUntil(fresh, "id:"), "");
}

TEST_F(Page, CapsItsClientsAndTakesNewOnesInTheirPlace) {
    const std::string own = serve();
    std::vector<std::unique_ptr<Subprocess>> clients;
    for (int i = 0; i < PageServer::kClientCeiling; ++i) {
        clients.push_back(std::make_unique<Subprocess>(curl(own + "/events")));
        EXPECT_NE(readUntil(*clients.back(), "data:"), "");
    }
    EXPECT_EQ(runToEnd(curl(own + "/events")).output, "Too many pages are open.\n");
    clients.pop_back();
    // Its end is seen before long.
    std::string first;
    while (first.empty()) {
        Subprocess next(curl(own + "/events"));
        first = readUntil(next, "data:");
    }
    EXPECT_THAT(first, HasSubstr("\"answers\":[]"));
}

TEST_F(Page, GivesNothingWithoutTheRightNames) {
    const std::string own = serve();
    const std::vector<std::string> status{"--output", "/dev/null", "--write-out", "%{http_code}"};
    const auto statusOf = [&](const std::string& path, std::vector<std::string> options) {
        options.insert(options.begin(), status.begin(), status.end());
        return runToEnd(curl(path, options)).output;
    };
    EXPECT_EQ(statusOf(server_->url(), {}), "200");
    EXPECT_EQ(statusOf(own + "/page.js", {}), "200");
    EXPECT_EQ(statusOf(own + "/page.js", {"--header", "Host: workbench.example"}), "421");
    EXPECT_EQ(statusOf(own.substr(0, own.rfind('/')) + "/page.js", {}), "403");
    EXPECT_EQ(statusOf(own + "/requests/clear", {"--data", ""}), "403");
    const std::string origin = "Origin: " + own.substr(0, own.rfind('/'));
    EXPECT_EQ(statusOf(own + "/requests/clear", {"--data", "", "--header", origin}), "204");
    EXPECT_EQ(statusOf(own + "/config", {"--form", "a=b", "--header", origin}), "415");
    const std::string large = testing::writeFile(::testing::TempDir() + "/large-config",
                                                 std::string(ConfigSource::kCeiling + 1, ' '));
    EXPECT_EQ(statusOf(own + "/config", {"--data-binary", "@" + large, "--header", origin}), "413");
}

TEST_F(Page, PutsTheTokenIntoThePageAlone) {
    const std::string own = serve();
    const std::string token = own.substr(own.rfind('/') + 1);
    EXPECT_THAT(runToEnd(curl(server_->url())).output, HasSubstr("src=\"/" + token + "/page.js\""));
    for (const PageAsset& asset : pageAssets()) {
        if (asset.name == "index.html") continue;
        EXPECT_EQ(runToEnd(curl(own + "/" + std::string(asset.name))).output, asset.content) << asset.name;
    }
}

TEST_F(Page, RefusesControlsThatMakeNoSense) {
    const std::vector<std::tuple<std::string, std::string, int>> cases{
        {"answers", R"({"answers":["503","stall"]})", 204},
        {"answers", R"({"answers":["503","soon"]})", 400},
        {"answers", R"({"answers":["503:A=b\r\nC: d"]})", 400},
        {"answers", R"({"answers":[503]})", 400},
        {"answers", R"({"answers":"503"})", 400},
        {"answers", "[", 400},
        {"answers", R"({"answers":["stall","stall","stall","stall","stall","stall","stall","stall"]})", 409},
        {"config", "{", 400},
        {"config", std::string(ConfigSource::kCeiling, ' ') + "1", 400},
        {"config", R"({"a": 1})", 204},
        {"", "", 404},
        {"nothing", "", 404},
    };
    for (const auto& [name, body, status] : cases) {
        EXPECT_EQ(controls_.perform(name, body).status, status) << name << " " << body.substr(0, 80);
    }
    EXPECT_THAT(script_.pending(), ::testing::ElementsAre("503", "stall"));
    EXPECT_EQ(config_.body(), R"({"data":{"config":{"a": 1}}})");
    std::string many = R"({"answers":["200")";
    for (std::size_t i = 1; i < PageControls::kScriptCeiling; ++i) many += R"(,"200")";
    EXPECT_EQ(controls_.perform("answers", many + "]}").status, 409);
    EXPECT_EQ(controls_.perform("answers/clear", "").status, 204);
    EXPECT_EQ(controls_.perform("answers", many + "]}").status, 204);
    EXPECT_EQ(controls_.perform("config/restore", "").status, 204);
    EXPECT_EQ(config_.text(), "{}");
}

TEST_F(Page, LetsStalledRequestsGo) {
    std::thread stalled([this] { stalls_.wait(); });
    while (stalls_.count() == 0) changes_.waitPast(0, std::chrono::seconds(60));
    EXPECT_THAT(controls_.state(), HasSubstr("\"stalled\":1"));
    EXPECT_EQ(controls_.perform("stalls/release", "").status, 204);
    stalled.join();
    EXPECT_EQ(stalls_.count(), 0U);
}

}  // namespace
}  // namespace quillkit
