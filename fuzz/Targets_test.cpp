#include "fuzz/Targets.h"

#include <random>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/platform/KeyedArchive.h"
#include "QLSDKCoreKit/platform/PropertyList.h"
#include "QLSDKCoreKit/platform/Value.h"
#include "QLSDKCoreKit/platform/internal/testsupport/SampleRecord.h"

namespace qlsdk::fuzz {
namespace {

// The same mutations on every run: the engine's sequence is fixed by the language.
void drive(void (*target)(DataView), const std::vector<Data>& seeds) {
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
    drive(keyedArchive, {archiveRootObject(everyKind(), platform::RootClass::mutableDictionary),
                         archiveRootObject(list, platform::RootClass::dictionary)});
}

TEST(FuzzTargets, PropertyListHoldsUnderMutation) {
    drive(propertyList, {*platform::serializePropertyList(everyKind()),
                         archiveRootObject(Value("x"), platform::RootClass::dictionary)});
}

TEST(FuzzTargets, JsonHoldsUnderMutation) {
    drive(json, {dataOf(R"({"a":[1,-2.5e3,true,null,"\u00e9\ud83d\ude00"],"b":{"c":{}}})"),
                 dataOf("[[[]],18446744073709551615]")});
}

}  // namespace
}  // namespace qlsdk::fuzz
