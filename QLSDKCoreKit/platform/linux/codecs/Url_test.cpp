#include "QLSDKCoreKit/platform/Url.h"

#include <gtest/gtest.h>

namespace qlsdk::platform {
namespace {

TEST(Url, AcceptsWhatRfc3986Does) {
    for (const char* text :
         {"x://h", "https://user@host:8443/a/b?c=d#e", "quillo://", "mailto:a@b", "/only/a/path", "?q", "#f",
          "a", "http://[::1]/", "x://h?k=%20%F0%9F", "//host/path"}) {
        const std::optional<Url> url = Url::parse(text);
        ASSERT_TRUE(url) << text;
        EXPECT_EQ(url->absoluteString(), text);
    }
}

TEST(Url, RefusesWhatIsNone) {
    for (const char* text : {"", "a b", "http://h/%zz", "http://h/%2", "http://[::1/", "http://h/\xC3\xA9",
                             "x://h\n", "http://h:port/", "http://h/<>", "#a#b", "1:a b"}) {
        EXPECT_FALSE(Url::parse(text)) << text;
    }
    EXPECT_FALSE(Url::parse(std::string_view("x://h/\0", 7)));
    EXPECT_FALSE(Url::parse("http://h/" + std::string(1 << 20, '"')));
    EXPECT_TRUE(Url::parse("http://h/" + std::string(8 << 20, 'a')));
}

TEST(Url, ReplacesTheQueryAndKeepsTheFragment) {
    struct Case {
        const char* text;
        const char* query;
        const char* expected;
    };
    for (const Case& c :
         {Case{"x://h?old=1", "k=v", "x://h?k=v"}, Case{"x://h", "k=v", "x://h?k=v"},
          Case{"x://h", "", "x://h?"}, Case{"x://h?old", "", "x://h?"},
          Case{"x://h?a?b#f?g", "k=v", "x://h?k=v#f?g"}, Case{"x://h/#f?g", "k", "x://h/?k#f?g"}}) {
        const std::optional<Url> url = Url::parse(c.text);
        ASSERT_TRUE(url) << c.text;
        EXPECT_EQ(url->withQuery(c.query).absoluteString(), c.expected);
    }
}

}  // namespace
}  // namespace qlsdk::platform
