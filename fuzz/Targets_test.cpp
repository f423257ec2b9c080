#include "fuzz/Targets.h"

#include <algorithm>
#include <filesystem>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/platform/Files.h"
#include "QLSDKCoreKit/platform/Json.h"
#include "QLSDKCoreKit/platform/PropertyList.h"
#include "QLSDKCoreKit/values/KeyedArchive.h"
#include "QLSDKCoreKit/values/Value.h"
#include "QLSDKCoreKit/values/testing/SampleRecord.h"

namespace qlsdk::fuzz {
namespace {

// Files as the library and the service write them. Without them a fuzzer stays at the front door.
std::vector<Data> seedsIn(const std::string& folder) {
    std::vector<std::string> paths;
    for (const auto& file : std::filesystem::directory_iterator(QLSDK_FUZZ_SEEDS "/" + folder)) {
        paths.push_back(file.path());
    }
    std::sort(paths.begin(), paths.end());
    std::vector<Data> seeds;
    for (const std::string& path : paths) seeds.push_back(platform::readFile(path, 1 << 20).value_or(Data()));
    return seeds;
}

// The seeds are read as they are, by `isRead`, and then mutated: in the same way on every run, as the
// engine's sequence is fixed by the language.
void drive(void (*target)(DataView), bool (*isRead)(DataView), std::vector<Data> seeds,
           const std::string& folder) {
    for (Data& seed : seedsIn(folder)) seeds.push_back(std::move(seed));
    ASSERT_GT(seeds.size(), 4U);
    for (std::size_t i = 0; i < seeds.size(); ++i)
        EXPECT_TRUE(isRead(seeds[i])) << "seed " << i << " of " << folder;
    std::mt19937 random(1);
    const auto below = [&random](std::size_t bound) { return static_cast<std::ptrdiff_t>(random() % bound); };
    for (int round = 0; round < 20000; ++round) {
        Data bytes = seeds[static_cast<std::size_t>(below(seeds.size()))];
        for (auto edits = below(6); edits >= 0 && !bytes.empty(); --edits) {
            const auto place = bytes.begin() + below(bytes.size());
            switch (below(4)) {
                case 0:
                    *place = static_cast<std::uint8_t>(random());
                    break;
                case 1:
                    *place = static_cast<std::uint8_t>(*place + 1);
                    break;
                case 2:
                    bytes.erase(place, place + below(static_cast<std::size_t>(bytes.end() - place)));
                    break;
                default:
                    bytes.insert(place, *(bytes.begin() + below(bytes.size())));
                    break;
            }
        }
        target(bytes);
    }
}

Value everyKind() {
    return Dictionary{{"text", "caf\xC3\xA9"},
                      {"list", Array{0, -1, 1.5, true, INT64_MAX}},
                      {"data", Data{0, 1}},
                      {"date", Date{1000000000}},
                      {"nested", Dictionary{{"a", Array{Dictionary{}}}}}};
}

TEST(FuzzTargets, KeyedArchiveHoldsUnderMutation) {
    auto record = std::make_shared<platform::testing::SampleRecord>();
    record->number = -1;
    record->bytes = Data{1, 2};
    record->text = "$null";
    record->child = everyKind();
    const platform::ArchivedObject object{std::shared_ptr<platform::Archivable>(record)};
    const platform::ArchivedObject list(platform::ArchivedObject::List{object, object, Value()});
    drive(keyedArchive, isArchive,
          {archiveRootObject(everyKind(), platform::RootClass::mutableDictionary),
           archiveRootObject(list, platform::RootClass::dictionary)},
          "keyed_archive");
}

TEST(FuzzTargets, PropertyListHoldsUnderMutation) {
    const auto isRead = [](DataView bytes) { return platform::parsePropertyList(bytes).has_value(); };
    drive(propertyList, isRead,
          {*platform::serializePropertyList(everyKind()), *platform::serializePropertyList(Value("x"))},
          "property_list");
}

TEST(FuzzTargets, JsonHoldsUnderMutation) {
    const auto isRead = [](DataView bytes) { return platform::parseJson(bytes).has_value(); };
    drive(json, isRead,
          {dataOf(R"({"a":[1,-2.5e3,true,null,"\u00e9\ud83d\ude00"],"b":{"c":{}}})"),
           dataOf("[[[]],18446744073709551615]")},
          "json");
}

TEST(FuzzTargets, TokenHoldsUnderMutation) {
    const Data text = dataOf("com.example.app:1795385225380\3\3\3");
    drive(token, isToken, {text, dataOf(sealedToken(text)), dataOf(sealedToken(dataOf(":-1\1")))}, "token");
}

}  // namespace
}  // namespace qlsdk::fuzz
