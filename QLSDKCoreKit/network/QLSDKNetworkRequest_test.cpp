#include "QLSDKCoreKit/network/QLSDKNetworkRequest.h"

#include <regex>

#include "QLSDKCoreKit/core/QLSDKTweaks.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace qlsdk {
namespace {

class Provider final : public QLAuthHeaderProvider {
  public:
    explicit Provider(std::optional<std::string> value) : value_(std::move(value)) {}
    std::string authHeaderName() override { return "X-Auth"; }
    std::optional<std::string> authHeaderValue() override { return value_; }

  private:
    std::optional<std::string> value_;
};

class QLSDKNetworkRequestTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(fakes.install()); }

    static platform::UrlRequest converted(const QLSDKNetworkRequest& request) {
        const auto converted = request.toUrlRequestWithBaseUrl("https://h");
        EXPECT_TRUE(converted);
        return converted.value_or(platform::UrlRequest());
    }
    static std::string header(const platform::UrlRequest& request, std::string_view name) {
        const std::string* value = request.headers.find(name);
        return value != nullptr ? *value : "(none)";
    }

    platform::testing::FakePlatform fakes;
};

TEST_F(QLSDKNetworkRequestTest, DecoratesAPost) {
    QLSDKNetworkRequest request("/v1/x", "POST", std::make_shared<Provider>("sealed"));
    request.setHttpBody(dataOf("body"));
    request.setContentType("application/protobuf");
    const auto url = request.toUrlRequest();
    ASSERT_TRUE(url);
    EXPECT_EQ(url->url, QLSDKTweaks::shared().quillKitApiBaseUrl() + std::string("/v1/x"));
    EXPECT_EQ(url->method, "POST");
    EXPECT_EQ(url->body, dataOf("body"));
    EXPECT_EQ(header(*url, "Content-Type"), "application/protobuf");
    EXPECT_EQ(header(*url, "User-Agent"), "QLSDK/(iPhone;iOS;12.2)");
    EXPECT_EQ(header(*url, "X-Auth"), "sealed");
    EXPECT_EQ(header(*url, "X-Quill-SDK-OAuth-Client-Id"), "abc");
    EXPECT_EQ(url->headers.size(), 5u);
    EXPECT_EQ(request.expectedStatusCode(), 0);
    EXPECT_EQ(request.identifier(), std::nullopt);
}

TEST_F(QLSDKNetworkRequestTest, OnlyAnExactPostCarriesABody) {
    for (const char* method : {"GET", "post", "PUT", "POST "}) {
        QLSDKNetworkRequest request("/v1/x", method, nullptr);
        request.setHttpBody(dataOf("body"));
        request.setContentType("text/plain");
        const platform::UrlRequest url = converted(request);
        EXPECT_EQ(url.method, method);
        EXPECT_FALSE(url.body) << method;
        EXPECT_EQ(header(url, "Content-Type"), "(none)") << method;
    }
    QLSDKNetworkRequest untyped("/v1/x", "POST", nullptr);
    untyped.setHttpBody(Data());
    EXPECT_EQ(converted(untyped).body, Data());
    EXPECT_EQ(header(converted(untyped), "Content-Type"), "(none)");
}

TEST_F(QLSDKNetworkRequestTest, TheLibrarysFieldsReplaceTheCallersAlsoWhereTheyHaveNoValue) {
    struct Case {
        const char* method;
        std::optional<Data> body;
        std::optional<std::string> contentType;
        std::shared_ptr<Provider> provider;
        const char* expectedType;
        const char* expectedAuth;
    };
    const Data body = dataOf("body");
    for (const Case& c :
         {Case{"POST", body, "a/b", std::make_shared<Provider>("sealed"), "a/b", "sealed"},
          Case{"POST", body, std::nullopt, std::make_shared<Provider>(std::nullopt), "(none)", "(none)"},
          Case{"POST", std::nullopt, "a/b", nullptr, "(none)", "mine"},
          Case{"GET", body, "a/b", nullptr, "(none)", "mine"}}) {
        QLSDKNetworkRequest request("/v1/x", c.method, c.provider);
        request.setHttpBody(c.body);
        request.setContentType(c.contentType);
        platform::HeaderFields headers;
        for (const char* name : {"user-agent", "x-cloud-trace-context", "X-AUTH", "content-type",
                                 "x-quill-sdk-oauth-client-id", "X-Own"}) {
            headers.set(name, "mine");
        }
        request.setHeaders(headers);
        const platform::UrlRequest url = converted(request);
        EXPECT_EQ(header(url, "User-Agent"), "QLSDK/(iPhone;iOS;12.2)");
        EXPECT_TRUE(header(url, "X-Cloud-Trace-Context").ends_with("/0;o=1"));
        EXPECT_EQ(header(url, "X-Quill-SDK-OAuth-Client-Id"), "abc");
        EXPECT_EQ(header(url, "Content-Type"), c.expectedType);
        EXPECT_EQ(header(url, "X-Auth"), c.expectedAuth);
        EXPECT_EQ(header(url, "X-Own"), "mine");
    }
}

TEST_F(QLSDKNetworkRequestTest, EachConversionHasATraceOfItsOwnAndLogsIt) {
    const QLSDKNetworkRequest request("/v1/x\n", "POST", nullptr);
    const QLSDKNetworkRequest good("/v1/x", "POST", nullptr);
    const std::string first = header(converted(good), "X-Cloud-Trace-Context");
    const std::string second = header(converted(good), "X-Cloud-Trace-Context");
    EXPECT_TRUE(std::regex_match(first, std::regex("[0-9A-F]{32}/0;o=1"))) << first;
    EXPECT_NE(first, second);
    EXPECT_EQ(fakes.log->lines(),
              (std::vector<std::string>{"[QuillKit] path=/v1/x trace_id=" + first.substr(0, 32),
                                        "[QuillKit] path=/v1/x trace_id=" + second.substr(0, 32)}));
    EXPECT_EQ(request.toUrlRequestWithBaseUrl("https://h"), std::nullopt) << "no URL, no request";
}

TEST_F(QLSDKNetworkRequestTest, QueryParametersReplaceTheQueryAndNoneLeavesItAlone) {
    QLSDKNetworkRequest request("/p?old=1", "GET", nullptr);
    EXPECT_EQ(converted(request).url, "https://h/p?old=1");
    request.setQueryParams(Dictionary());
    EXPECT_EQ(converted(request).url, "https://h/p?old=1") << "an empty dictionary is none";
    request.setQueryParams(Dictionary{{"b", "x y"}, {"a", "1&2"}});
    EXPECT_EQ(converted(request).url, "https://h/p?b=x%20y&a=1%262");
}

TEST(QLSDKNetworkRequest, ANumberAsClientIdentifierIsPrintedAndAnAbsentOneLeftOut) {
    platform::testing::FakePlatform fakes;
    fakes.bundles->setMain({{"QLSDKClientId", 4711}});
    ASSERT_TRUE(fakes.install());
    const auto url = QLSDKNetworkRequest("/p", "GET", nullptr).toUrlRequest();
    ASSERT_TRUE(url);
    EXPECT_EQ(*url->headers.find("X-Quill-SDK-OAuth-Client-Id"), "4711");
}

TEST(QLSDKNetworkRequest, WithoutAClientIdentifierAndATraceTheRestIsComplete) {
    platform::testing::FakePlatform fakes;
    fakes.bundles->setMain({});
    fakes.random->failAfter(0, 5);
    ASSERT_TRUE(fakes.install());
    QLSDKNetworkRequest request("/p", "GET", nullptr);
    platform::HeaderFields headers;
    headers.set("x-cloud-trace-context", "mine");
    headers.set("X-QUILL-SDK-OAuth-Client-Id", "mine");
    request.setHeaders(headers);
    const auto url = request.toUrlRequest();
    ASSERT_TRUE(url);
    ASSERT_EQ(url->headers.size(), 1u);
    EXPECT_EQ(url->headers.begin()->first, "User-Agent");
}

}  // namespace
}  // namespace qlsdk
