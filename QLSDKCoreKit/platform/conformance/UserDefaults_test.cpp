#include "QLSDKCoreKit/platform/UserDefaults.h"

#include <functional>
#include <memory>
#include <ostream>

#include <gtest/gtest.h>

#include "QLSDKCoreKit/platform/linux/LinuxAdapters.h"
#include "QLSDKCoreKit/platform/testing/FakeFacts.h"
#include "QLSDKCoreKit/platform/testing/FakeStores.h"
#include "QLSDKCoreKit/platform/testing/ManualQueues.h"

namespace qlsdk::platform::conformance {
namespace {

// Opens one more instance on the same store, as another process would.
using Opener = std::function<std::shared_ptr<UserDefaults>()>;

struct StoreFactory {
    const char* name;
    Opener (*makeEmptyStore)();

    friend void PrintTo(const StoreFactory& factory, std::ostream* out) { *out << factory.name; }
};

Opener makeFake() {
    return [defaults = std::make_shared<testing::FakeUserDefaults>()] { return defaults; };
}

Opener makeOnLinux() {
    return [home = std::make_shared<testing::TemporaryDirectories>()] {
        return makeLinuxUserDefaults(home->path(), std::make_shared<testing::FakeBundles>(),
                                     std::make_shared<testing::ManualQueues>());
    };
}

class UserDefaultsConformance : public ::testing::TestWithParam<StoreFactory> {
  protected:
    Opener open = GetParam().makeEmptyStore();
};

TEST_P(UserDefaultsConformance, KeepsEveryKindOfValueAcrossInstances) {
    const Dictionary values = {
        {"true", true},
        {"integer", INT64_MIN},
        {"real", 0.1},
        {"text", "\xC3\xA9 <&> \"quoted\"\n"},
        {"empty text", ""},
        {"data", Data{0, 0xFF, 0x80}},
        {"date", Date{1'546'300'800}},
        {"moment", Date{1'795'500'000.8000004}},
        {"array", Array{1, 1.5, "x", Array{}}},
        {"dictionary", Dictionary{{"b", 1}, {"a", Dictionary{{"c", false}}}}},
        {"com.quillo.\xE2\x82\xAC <key>", 1},
    };
    for (const auto& [key, value] : values) open()->setObjectForKey(value, key);
    for (const auto& [key, value] : values) EXPECT_TRUE(open()->objectForKey(key) == value) << key;
}

TEST_P(UserDefaultsConformance, NullRemovesAndAMissingKeyIsNull) {
    const auto defaults = open();
    EXPECT_TRUE(defaults->objectForKey("k").isNull());
    defaults->setObjectForKey({}, "k");
    defaults->setObjectForKey(1, "k");
    defaults->setObjectForKey("replaced", "k");
    EXPECT_TRUE(defaults->objectForKey("k") == Value("replaced"));
    defaults->setObjectForKey({}, "k");
    EXPECT_TRUE(defaults->objectForKey("k").isNull());
    EXPECT_TRUE(open()->objectForKey("k").isNull());
}

TEST_P(UserDefaultsConformance, TwoInstancesLoseNoKeyOfEachOther) {
    const auto first = open();
    const auto second = open();
    first->setObjectForKey(1, "a");
    second->setObjectForKey(2, "b");
    first->setObjectForKey(3, "c");
    for (const auto& [key, number] : {std::pair("a", 1), std::pair("b", 2), std::pair("c", 3)}) {
        EXPECT_TRUE(first->objectForKey(key) == Value(number)) << key;
        EXPECT_TRUE(second->objectForKey(key) == Value(number)) << key;
    }
}

INSTANTIATE_TEST_SUITE_P(Fake, UserDefaultsConformance, ::testing::Values(StoreFactory{"Fake", &makeFake}));
INSTANTIATE_TEST_SUITE_P(Linux, UserDefaultsConformance,
                         ::testing::Values(StoreFactory{"Linux", &makeOnLinux}));

}  // namespace
}  // namespace qlsdk::platform::conformance
