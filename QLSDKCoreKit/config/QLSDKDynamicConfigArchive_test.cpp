#include "QLSDKCoreKit/config/QLSDKDynamicConfigArchive.h"

#include <filesystem>
#include <limits>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/testing/FakePlatform.h"
#include "QLSDKCoreKit/values/testing/Python.h"

namespace qlsdk {
namespace {

using platform::testing::runPython;

constexpr std::size_t kMegabyte = std::size_t{1} << 20;

DynamicConfigEntities entities(std::initializer_list<std::pair<const char*, Dictionary>> configs) {
    DynamicConfigEntities made;
    for (const auto& [name, config] : configs) {
        made.emplace(name, std::make_shared<QLSDKDynamicConfigEntity>(name, config));
    }
    return made;
}

class QLSDKDynamicConfigArchiveTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(fakes.install()); }
    void TearDown() override {
        EXPECT_FALSE(archive.unarchiveSync()) << "more than one reader was served";
        EXPECT_FALSE(platform::fileExists(path()));
    }

    std::string path() const { return fakes.directories->path() + "/qlsdk-dynamic-config.plist"; }
    Data file() const { return platform::readFile(path(), 8 * kMegabyte).value_or(Data()); }

    const platform::testing::FakePlatform fakes;
    const QLSDKDynamicConfigArchive archive{};
};

TEST_F(QLSDKDynamicConfigArchiveTest, GivesBackOnceWhatWasStored) {
    ASSERT_TRUE(archive.archiveSync(entities({{"old", {{"n", 1}}}})));
    ASSERT_TRUE(archive.archiveSync(entities(
        {{"a", {{"n", -5}, {"u", "\xC3\xA9"}}}, {"b", {{"x", Dictionary{{"on", true}, {"r", 2.5}}}}}})));
    EXPECT_FALSE(archive.archiveSync(std::nullopt)) << "nothing was stored over something";
    const auto stored = archive.unarchiveSync();
    ASSERT_TRUE(stored);
    ASSERT_EQ(stored->size(), 2U);
    EXPECT_EQ(stored->at("a")->longValue({"n"}, 0), -5);
    EXPECT_EQ(stored->at("a")->stringValue({"u"}, ""), "\xC3\xA9");
    EXPECT_TRUE(stored->at("b")->boolValue({"x", "on"}, false));
    EXPECT_EQ(stored->at("b")->doubleValue({"x", "r"}, 0), 2.5);
}

TEST_F(QLSDKDynamicConfigArchiveTest, StoresAnEmptyConfigurationAsOne) {
    ASSERT_TRUE(archive.archiveSync(DynamicConfigEntities()));
    const auto stored = archive.unarchiveSync();
    ASSERT_TRUE(stored);
    EXPECT_TRUE(stored->empty());
}

TEST_F(QLSDKDynamicConfigArchiveTest, WritesAKeyedArchiveThatOthersRead) {
    ASSERT_TRUE(archive.archiveSync(entities({{"search",
                                               {{"enabled", true},
                                                {"n", 1},
                                                {"r", 1.0},
                                                {"none", Value()},
                                                {"list", Array{"x", Dictionary()}}}}})));
    const Data judged = runPython(R"(
import json, plistlib, sys
top = plistlib.loads(sys.stdin.buffer.read())
assert top["$archiver"] == "NSKeyedArchiver" and top["$version"] == 100000, top
objects = top["$objects"]
def plain(node):
    if isinstance(node, plistlib.UID): return plain(objects[node.data])
    if not isinstance(node, dict): return node
    chain = objects[node["$class"].data]["$classes"]
    if chain[0] == "NSNull": return None
    if chain[-2:] == ["NSDictionary", "NSObject"]:
        entries = zip(map(plain, node["NS.keys"]), map(plain, node["NS.objects"]))
        return {"<class>": chain[0], **dict(entries)}
    if chain[0] == "NSArray": return [plain(each) for each in node["NS.objects"]]
    return {"<class>": chain, **{key: plain(node[key]) for key in node if key != "$class"}}
print(json.dumps(plain(top["$top"]["root"])), end="")
)",
                                  file());
    EXPECT_EQ(textOf(judged),
              R"({"<class>": "NSMutableDictionary", "search": )"
              R"({"<class>": ["QLSDKDynamicConfigEntity", "NSObject"], "name": "search", "config": )"
              R"({"<class>": "NSDictionary", "enabled": true, "n": 1, "r": 1.0, "none": null, )"
              R"("list": ["x", {"<class>": "NSDictionary"}]}}})");
    EXPECT_TRUE(archive.unarchiveSync());
}

TEST_F(QLSDKDynamicConfigArchiveTest, ReadsAnArchiveOfAnotherWriter) {
    // Immutable root, a record without a name, one with a configuration that is none, and a mere text.
    const Data foreign = runPython(R"(
import plistlib, sys
U = plistlib.UID
def kind(*chain): return {"$classname": chain[0], "$classes": [*chain, "NSObject"]}
objects = ["$null",
    {"NS.keys": [U(2), U(3), U(4)], "NS.objects": [U(5), U(6), U(3)], "$class": U(10)},
    "nameless", "odd", "text",
    {"config": U(7), "$class": U(11)}, {"name": U(3), "config": U(4), "$class": U(11)},
    {"NS.keys": [U(8)], "NS.objects": [U(9)], "$class": U(12)}, "enabled", 1,
    kind("NSDictionary"), kind("QLSDKDynamicConfigEntity"), kind("NSMutableDictionary", "NSDictionary")]
sys.stdout.buffer.write(plistlib.dumps({"$version": 100000, "$archiver": "NSKeyedArchiver",
    "$top": {"root": U(1)}, "$objects": objects}, fmt=plistlib.FMT_BINARY))
)");
    ASSERT_TRUE(platform::replaceFile(path(), foreign));
    const auto stored = archive.unarchiveSync();
    ASSERT_TRUE(stored);
    ASSERT_EQ(stored->size(), 2U);
    EXPECT_TRUE(stored->at("nameless")->boolValue({"enabled"}, false));
    EXPECT_EQ(stored->at("odd")->longValue({"enabled"}, 7), 7);
}

TEST_F(QLSDKDynamicConfigArchiveTest, RemovesWhatItCannotRead) {
    EXPECT_FALSE(archive.unarchiveSync()) << "there is no file yet";
    ASSERT_TRUE(archive.archiveSync(entities({{"a", {{"n", 1}}}})));
    const Data whole = file();
    for (const std::size_t size : {std::size_t{0}, std::size_t{8}, whole.size() / 2, whole.size() - 1}) {
        ASSERT_TRUE(platform::replaceFile(path(), DataView(whole).first(size)));
        EXPECT_FALSE(archive.unarchiveSync()) << size;
        EXPECT_FALSE(platform::fileExists(path())) << size;
    }
    ASSERT_TRUE(platform::replaceFile(path(), Data(5 * kMegabyte)));
    EXPECT_FALSE(archive.unarchiveSync());
}

TEST_F(QLSDKDynamicConfigArchiveTest, RefusesWhatItCouldNotReadAgainAndKeepsTheOld) {
    ASSERT_TRUE(archive.archiveSync(entities({{"old", {{"n", 1}}}})));
    EXPECT_FALSE(archive.archiveSync(entities({{"big", {{"text", std::string(5 * kMegabyte, 'x')}}}})));
    Value deep;
    for (int level = 0; level < 600; ++level) deep = Array{deep};
    EXPECT_FALSE(archive.archiveSync(entities({{"deep", {{"list", deep}}}})));
    const auto stored = archive.unarchiveSync();
    ASSERT_TRUE(stored);
    EXPECT_TRUE(stored->contains("old"));
}

TEST_F(QLSDKDynamicConfigArchiveTest, MakesItsDirectoryAgainAndSaysWhenTheWriteFails) {
    const std::string directory = fakes.directories->path();
    std::filesystem::remove(directory);
    ASSERT_TRUE(platform::replaceFile(directory, {}));
    EXPECT_FALSE(archive.archiveSync(DynamicConfigEntities()));
    std::filesystem::remove(directory);
    EXPECT_TRUE(archive.archiveSync(DynamicConfigEntities()));
    EXPECT_TRUE(platform::fileExists(path()));
    EXPECT_EQ(std::filesystem::status(directory).permissions(), std::filesystem::perms::owner_all);
    ASSERT_TRUE(platform::replaceFile(path() + ".qlsdk~aB3dE9", {}));
    EXPECT_TRUE(archive.archiveSync(DynamicConfigEntities()));
    EXPECT_FALSE(platform::fileExists(path() + ".qlsdk~aB3dE9")) << "a killed writer's";
    EXPECT_TRUE(archive.unarchiveSync());
}

TEST(QLSDKDynamicConfigArchive, StoresNothingWithoutACachesDirectory) {
    const platform::testing::FakePlatform fakes;
    class NoDirectories final : public platform::Directories {
        std::optional<std::string> cachesDirectory() override { return std::nullopt; }
    };
    platform::Platform platform = fakes.platform();
    platform.directories = std::make_shared<NoDirectories>();
    ASSERT_EQ(platform::install(platform), platform::InstallResult::installed);
    EXPECT_FALSE(QLSDKDynamicConfigArchive().archiveSync(DynamicConfigEntities()));
    EXPECT_FALSE(QLSDKDynamicConfigArchive().unarchiveSync());
}

}  // namespace
}  // namespace qlsdk
