#include "QLSDKCoreKit/config/QLSDKDynamicConfigEntity.h"

#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

namespace qlsdk {
namespace {

using KeyPath = QLSDKDynamicConfigEntity::KeyPath;

const QLSDKDynamicConfigEntity& entity() {
    static const auto& leaked = *new QLSDKDynamicConfigEntity(
        "search", Dictionary{{"enabled", true},
                             {"off", 0},
                             {"count", 2},
                             {"ratio", -2.9},
                             {"huge", 1e300},
                             {"unsigned", std::numeric_limits<std::uint64_t>::max()},
                             {"word", "true"},
                             {"nothing", Value()},
                             {"", 1},
                             {"list", Array{1, 2}},
                             {"deep", Dictionary{{"deeper", Dictionary{{"word", "found"}, {"", 1}}}}}});
    return leaked;
}

TEST(QLSDKDynamicConfigEntity, ReadsEveryNumberInEveryShape) {
    struct Case {
        const char* key;
        bool boolean;
        std::int64_t integer;
        double real;
    };
    constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
    for (const Case& each :
         {Case{"enabled", true, 1, 1.0}, Case{"off", false, 0, 0.0}, Case{"count", true, 2, 2.0},
          Case{"ratio", true, -2, -2.9}, Case{"huge", true, kLargest, 1e300},
          Case{"unsigned", true, -1, 18446744073709551616.0}}) {
        EXPECT_EQ(entity().boolValue({each.key}, !each.boolean), each.boolean) << each.key;
        EXPECT_EQ(entity().longValue({each.key}, 77), each.integer) << each.key;
        EXPECT_EQ(entity().doubleValue({each.key}, 7.7), each.real) << each.key;
        EXPECT_EQ(entity().stringValue({each.key}, "default"), "default") << each.key;
    }
}

TEST(QLSDKDynamicConfigEntity, ReadsTextsAsTextsOnly) {
    EXPECT_EQ(entity().stringValue({"word"}, std::nullopt), "true");
    EXPECT_FALSE(entity().boolValue({"word"}, false));
    EXPECT_EQ(entity().longValue({"word"}, 7), 7);
    EXPECT_EQ(entity().doubleValue({"word"}, 7.5), 7.5);
    EXPECT_EQ(entity().stringValue({"absent"}, std::nullopt), std::nullopt);
}

TEST(QLSDKDynamicConfigEntity, FollowsAPathThroughObjectsAndNothingElse) {
    EXPECT_EQ(entity().stringValue({"deep", "deeper", "word"}, "default"), "found");
    const KeyPath misses[] = {{},
                              {""},
                              {"nothing"},
                              {"list"},
                              {"list", "0"},
                              {"word", "true"},
                              {"enabled", "enabled"},
                              {"deep"},
                              {"deep", "word"},
                              {"deep", "", "word"},
                              {"deep", "deeper", ""},
                              {"deep", "deeper", "word", "word"}};
    for (const KeyPath& path : misses) {
        EXPECT_EQ(entity().stringValue(path, "default"), "default")
            << describe(Array(path.begin(), path.end()));
        EXPECT_EQ(entity().longValue(path, 7), 7) << describe(Array(path.begin(), path.end()));
    }
}

}  // namespace
}  // namespace qlsdk
