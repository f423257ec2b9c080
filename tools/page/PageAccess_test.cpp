#include "tools/page/PageAccess.h"

#include <cerrno>
#include <functional>

#include "tools/cli/Failure.h"
#include <gtest/gtest.h>

#include "QLSDKCoreKit/platform/testing/FakePlatform.h"

namespace quillkit {
namespace {

const std::string kToken = "0123456789abcdef";

PageCaller caller(const std::string& method, const std::string& path) {
    return {.method = method,
            .path = path,
            .host = "127.0.0.1:8080",
            .origin = method == "POST" ? std::optional("http://127.0.0.1:8080") : std::nullopt,
            .fetchSite = std::nullopt,
            .queryToken = path == "/" ? std::optional(kToken) : std::nullopt};
}

TEST(PageAccess, DecidesByHostOriginTokenAndMethod) {
    const PageAccess access(8080, kToken);
    const std::string events = "/" + kToken + "/events";
    const auto changed = [](PageCaller one, const std::function<void(PageCaller&)>& change) {
        change(one);
        return one;
    };
    const std::vector<std::pair<PageCaller, int>> cases{
        {caller("GET", "/"), 0},
        {caller("GET", events), 0},
        {caller("POST", "/" + kToken + "/answers"), 0},
        {changed(caller("GET", events), [](PageCaller& c) { c.host = "localhost:8080"; }), 0},
        {changed(caller("GET", events), [](PageCaller& c) { c.host = "localhost:8081"; }), 421},
        {changed(caller("GET", events), [](PageCaller& c) { c.host = "workbench.example:8080"; }), 421},
        {changed(caller("GET", events), [](PageCaller& c) { c.host.reset(); }), 421},
        {changed(caller("GET", "/"), [](PageCaller& c) { c.queryToken.reset(); }), 403},
        {changed(caller("GET", "/"), [](PageCaller& c) { c.queryToken = "0123456789abcdeF"; }), 403},
        {changed(caller("GET", "/events"), [](PageCaller& c) { c.queryToken = kToken; }), 403},
        {caller("GET", "/" + kToken), 403},
        {caller("GET", "/" + kToken + "0/events"), 403},
        {caller("GET", "//events"), 403},
        {caller("GET", ""), 403},
        // A name of its own, but not the one that the browser was given.
        {changed(caller("POST", events), [](PageCaller& c) { c.origin = "http://localhost:8080"; }), 403},
        {changed(caller("POST", events), [](PageCaller& c) { c.origin = "null"; }), 403},
        {changed(caller("POST", events), [](PageCaller& c) { c.origin.reset(); }), 403},
        {changed(caller("GET", events), [](PageCaller& c) { c.origin = "https://127.0.0.1:8080"; }), 403},
        {changed(caller("GET", events), [](PageCaller& c) { c.fetchSite = "same-origin"; }), 0},
        {changed(caller("GET", events), [](PageCaller& c) { c.fetchSite = "same-site"; }), 403},
        // A link in another page, which learns nothing from it.
        {changed(caller("GET", "/"), [](PageCaller& c) { c.fetchSite = "cross-site"; }), 0},
        {caller("PUT", events), 405},
    };
    for (const auto& [one, status] : cases) {
        EXPECT_EQ(access.refusalOf(one), status)
            << one.method << " " << one.path << " " << one.host.value_or("no host") << " "
            << one.origin.value_or("no origin") << " " << one.fetchSite.value_or("no site");
    }
    EXPECT_EQ(access.nameIn("/"), "");
    EXPECT_EQ(access.nameIn("/" + kToken + "/requests/7"), "requests/7");
    EXPECT_EQ(access.nameIn("/" + kToken + "/"), "");
}

TEST(PageAccess, TakesItsTokenFromThePlatform) {
    qlsdk::platform::testing::FakePlatform fakes;
    ASSERT_TRUE(fakes.install());
    const std::string token = PageAccess::newToken();
    EXPECT_EQ(token.size(), 64U);
    EXPECT_NE(PageAccess::newToken(), token);
    fakes.random->failAfter(0, EIO);
    EXPECT_THROW((void)PageAccess::newToken(), Failure);
}

}  // namespace
}  // namespace quillkit
