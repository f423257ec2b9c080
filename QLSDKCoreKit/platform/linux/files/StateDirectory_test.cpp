#include "QLSDKCoreKit/platform/linux/files/StateDirectory.h"

#include <filesystem>
#include <fstream>
#include <memory>

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "QLSDKCoreKit/platform/testing/FakeFacts.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"

namespace qlsdk::platform {
namespace {

std::optional<std::string> create(StateKind kind, std::optional<std::string> home = {}) {
    return StateDirectory(kind, std::move(home), std::make_shared<testing::FakeBundles>()).create();
}

TEST(StateDirectory, FollowsTheXdgRules) {
    const testing::TemporaryDirectories root;
    ASSERT_EQ(::setenv("HOME", (root.path() + "/home/").c_str(), 1), 0);
    for (const char* variable : {"XDG_CACHE_HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME"}) ::unsetenv(variable);
    EXPECT_EQ(create(StateKind::cache), root.path() + "/home/.cache/com.example.app");
    EXPECT_EQ(create(StateKind::config), root.path() + "/home/.config/com.example.app");
    EXPECT_EQ(create(StateKind::data), root.path() + "/home/.local/share/com.example.app");
    ASSERT_EQ(::setenv("XDG_CACHE_HOME", (root.path() + "/xdg").c_str(), 1), 0);
    EXPECT_EQ(create(StateKind::cache), root.path() + "/xdg/com.example.app");
    ASSERT_EQ(::setenv("XDG_CACHE_HOME", "relative", 1), 0);
    EXPECT_EQ(create(StateKind::cache), root.path() + "/home/.cache/com.example.app");
    EXPECT_EQ(create(StateKind::cache, root.path() + "/own"), root.path() + "/own/cache/com.example.app");
}

TEST(StateDirectory, CreatesWhatIsMissingPrivatelyUnderAnyUmask) {
    for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
        const testing::TemporaryDirectories root;
        const mode_t previous = ::umask(mask);
        const std::optional<std::string> path = create(StateKind::cache, root.path() + "/a/b");
        ::umask(previous);
        ASSERT_TRUE(path);
        for (const std::string& made : {root.path() + "/a", root.path() + "/a/b/cache", *path}) {
            struct stat status;
            ASSERT_EQ(::stat(made.c_str(), &status), 0) << made;
            EXPECT_EQ(status.st_mode & 07777, mode_t{0700}) << made;
        }
    }
}

TEST(StateDirectory, IsNamedEvenWhenItCannotBeMade) {
    const testing::TemporaryDirectories root;
    std::ofstream(root.path() + "/file") << "no directory";
    EXPECT_EQ(create(StateKind::data, root.path() + "/file"), root.path() + "/file/data/com.example.app");
}

TEST(StateDirectory, TurnsAnyIdentifierIntoOneFileName) {
    const std::string many(1000, 'x');
    const std::string_view longest = std::string_view(many).substr(0, 200);
    std::string slash(longest.substr(0, 199));
    std::string percent = slash;
    slash.push_back('/');
    percent.push_back('%');
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"com.example.app", "com.example.app"},
        {"", "unidentified-application"},
        {".", "%2E"},
        {"..", "%2E."},
        {"../../etc", "%2E.%2F..%2Fetc"},
        {std::string_view("a\0\n%b", 5), "a%00%0A%25b"},
        {"a\x1F ~\x7F\x80", "a%1F ~%7F\x80"},
        {many, longest},
        {slash, percent},
    };
    for (const auto& [identifier, name] : cases) EXPECT_EQ(safeFileName(identifier), name);
}

}  // namespace
}  // namespace qlsdk::platform
