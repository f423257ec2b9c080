#include <string>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/core/Helpers.h"

namespace qlsdk {
namespace {

std::string built(std::string_view base, const std::optional<Dictionary>& queries) {
    const auto url = buildWithBaseUrlString(base, queries);
    return url ? url->absoluteString() : "absent";
}

std::string printableAscii() {
    std::string text;
    for (char c = ' '; c <= '~'; ++c) text += c;
    return text;
}

// Expected values: Python's urllib.parse.quote(text, safe="").
TEST(StringHelpers, EncodesAllButTheUnreservedBytes) {
    EXPECT_EQ(urlEncodeString("a b~c/\xC3\xA9"), "a%20b~c%2F%C3%A9");
    EXPECT_EQ(urlEncodeString(std::string_view("\xC3\xA9\n\0\xE2\x82\xAC", 7)), "%C3%A9%0A%00%E2%82%AC");
    EXPECT_EQ(urlEncodeString(printableAscii()),
              "%20%21%22%23%24%25%26%27%28%29%2A%2B%2C-.%2F0123456789%3A%3B%3C%3D%3E%3F%"
              "40ABCDEFGHIJKLMNOPQRSTUVWXYZ"
              "%5B%5C%5D%5E_%60abcdefghijklmnopqrstuvwxyz%7B%7C%7D~");
}

// Expected value: Python's urllib.parse.quote(text, safe="!$'()*+,-./:;?@_~").
TEST(UrlHelpers, LeavesPlusAndItsLikeBareInAQuery) {
    EXPECT_EQ(
        built("x://h", Dictionary{{printableAscii(), "1+1"}}),
        "x://h?%20!%22%23$%25%26'()*+,-./0123456789:;%3C%3D%3E?@ABCDEFGHIJKLMNOPQRSTUVWXYZ%5B%5C%5D%5E_%60"
        "abcdefghijklmnopqrstuvwxyz%7B%7C%7D~=1+1");
}

TEST(UrlHelpers, ReplacesTheQueryInTheDictionarysOrder) {
    EXPECT_EQ(built("x://h?old=1", Dictionary{{"k", "v"}}), "x://h?k=v");
    EXPECT_EQ(built("x://h/p?old=1#f", Dictionary{{"z", "\xC3\xA9 &"}, {"a", 2}, {"m", ""}}),
              "x://h/p?z=%C3%A9%20%26&a=2&m=#f");
}

TEST(UrlHelpers, NoQueriesLeaveAnEmptyQuery) {
    EXPECT_EQ(built("x://h", std::nullopt), "x://h?");
    EXPECT_EQ(built("x://h?old=1", Dictionary()), "x://h?");
}

TEST(UrlHelpers, ABaseThatIsNoUrlGivesNone) {
    EXPECT_EQ(built("", Dictionary{{"k", "v"}}), "absent");
    EXPECT_EQ(built("x://h h", Dictionary{{"k", "v"}}), "absent");
}

}  // namespace
}  // namespace qlsdk
