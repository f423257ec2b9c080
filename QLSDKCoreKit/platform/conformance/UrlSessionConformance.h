#pragma once

#include <functional>
#include <future>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/platform/UrlSession.h"

namespace qlsdk::platform::conformance {

/// One adapter of the URL session together with a server that it reaches.
class UrlSessionUnderTest {
  public:
    virtual ~UrlSessionUnderTest() = default;

    [[nodiscard]] virtual std::shared_ptr<UrlSession> session() = 0;
    [[nodiscard]] virtual std::string url() = 0;
    /// What the server answers from now on: status, one header field in lower case, and body.
    virtual void serve(int status, std::string_view name, std::string_view value, std::string_view body) = 0;
    /// From now on the server is not there.
    virtual void disappear() = 0;
    /// Lets the tasks given so far come to their end.
    virtual void settle() = 0;
    /// How many requests have reached the server.
    [[nodiscard]] virtual std::size_t requestsSeen() = 0;
};

struct UrlSessionFactory {
    const char* name;
    std::function<std::unique_ptr<UrlSessionUnderTest>()> make;
};

inline void PrintTo(const UrlSessionFactory& factory, std::ostream* out) {
    *out << factory.name;
}

/// What every adapter of the URL session port promises. Instantiate with one factory per adapter.
class UrlSessionConformance : public ::testing::TestWithParam<UrlSessionFactory> {
  protected:
    UrlResult send(UrlRequest request, BodyCeiling ceiling) {
        int calls = 0;
        UrlResult result;
        under_->session()->dataTask(std::move(request), ceiling, [&](UrlResult given) {
            ++calls;
            result = std::move(given);
        });
        under_->settle();
        EXPECT_EQ(calls, 1);
        EXPECT_NE(result.error.has_value(), result.response.has_value());
        return result;
    }

    UrlRequest request() {
        UrlRequest made{.url = under_->url(), .method = "POST", .headers = {}, .body = dataOf("payload")};
        made.headers.set("X-Some-Header", "value");
        return made;
    }

    const std::unique_ptr<UrlSessionUnderTest> under_ = GetParam().make();
};

TEST_P(UrlSessionConformance, GivesStatusCanonicalHeadersAndBody) {
    for (const int status : {200, 301, 403, 429, 500}) {
        under_->serve(status, "x-retry-after-millis", "5000", "hello");
        const UrlResult result = send(request(), {1024});
        ASSERT_TRUE(result.response.has_value()) << status;
        EXPECT_EQ(result.response->statusCode, status);
        const std::string* header = result.response->headers.find("X-Retry-After-Millis");
        ASSERT_NE(header, nullptr);
        EXPECT_EQ(*header, "5000");
        for (const auto& [name, value] : result.response->headers) EXPECT_EQ(name, canonicalHeaderName(name));
        EXPECT_EQ(textOf(result.body), "hello");
    }
}

TEST_P(UrlSessionConformance, HoldsBodiesToTheirCeiling) {
    under_->serve(200, "x-a", "b", std::string(1'000, 'x'));
    EXPECT_EQ(send(request(), {1'000}).body.size(), 1'000u);
    EXPECT_TRUE(send(request(), {999}).error.has_value());
    const UrlResult discarded = send(request(), {0});
    EXPECT_TRUE(discarded.response.has_value());
    EXPECT_TRUE(discarded.body.empty());
}

TEST_P(UrlSessionConformance, SendsNothingForForbiddenHeaderValues) {
    under_->serve(200, "x-a", "b", "");
    for (const std::string_view value : {std::string_view("a\r\nX-Forged: 1"), std::string_view("a\nb"),
                                         std::string_view("a\rb"), std::string_view("a\0b", 3)}) {
        UrlRequest forged = request();
        forged.headers.set("X-Some-Header", value);
        EXPECT_TRUE(send(std::move(forged), {0}).error.has_value());
    }
    EXPECT_EQ(under_->requestsSeen(), 0u);
}

TEST_P(UrlSessionConformance, ReportsServerThatIsNotThereAsError) {
    under_->disappear();
    EXPECT_TRUE(send(request(), {0}).error.has_value());
}

TEST_P(UrlSessionConformance, GoesOnAfterCompletionThatThrowsAndIgnoresNullOne) {
    under_->serve(204, "x-a", "b", "");
    under_->session()->dataTask(request(), {0}, [](UrlResult) { throw std::runtime_error("swallowed"); });
    under_->session()->dataTask(request(), {0}, nullptr);
    under_->settle();
    EXPECT_EQ(send(request(), {0}).response->statusCode, 204);
    EXPECT_EQ(under_->requestsSeen(), 3u);
}

TEST_P(UrlSessionConformance, RefusesTasksUntilTheyAreAcceptedAgain) {
    under_->serve(204, "x-a", "b", "");
    int done = 0;
    under_->session()->refuseTasks([&done] { ++done; });
    under_->settle();
    EXPECT_EQ(done, 1);
    EXPECT_TRUE(send(request(), {0}).error.has_value());
    under_->session()->refuseTasks(nullptr);
    under_->settle();
    EXPECT_EQ(under_->requestsSeen(), 0u);
    under_->session()->acceptTasks();
    EXPECT_EQ(send(request(), {0}).response->statusCode, 204);
}

}  // namespace qlsdk::platform::conformance
