#include "tools/page/RequestRing.h"

#include "tools/testing/ServedRequests.h"
#include <gtest/gtest.h>

namespace quillkit {
namespace {

using testing::served;

TEST(RequestRing, KeepsTheNewestRequests) {
    RequestRing ring;
    for (std::size_t i = 0; i < RequestRing::kCapacity + 3; ++i) ring.add(served("/v1/config", "{}"));
    EXPECT_EQ(ring.find(3), nullptr);
    ASSERT_NE(ring.find(4), nullptr);
    EXPECT_EQ(ring.find(4)->id, 4U);
    EXPECT_EQ(ring.lastId(), RequestRing::kCapacity + 3);
    EXPECT_EQ(ring.after(0, 10 * RequestRing::kCapacity).size(), RequestRing::kCapacity);
    EXPECT_EQ(ring.after(ring.lastId() - 1, 5).size(), 1U);
    EXPECT_TRUE(ring.after(ring.lastId(), 5).empty());
}

TEST(RequestRing, IsBoundedInMemoryToo) {
    RequestRing ring;
    const ServedRequest large = served("/", std::string(RequestRing::kByteCeiling / 4, 'x'));
    for (int i = 0; i < 10; ++i) ring.add(large);
    EXPECT_EQ(ring.after(0, 100).size(), 3U);
    // Headers count as well.
    ServedRequest wide = served("/", "");
    wide.headers.assign(1000, {"name", std::string(RequestRing::kByteCeiling / 1000, 'x')});
    ring.add(wide);
    ring.add(served("/", ""));
    EXPECT_EQ(ring.after(0, 100).size(), 1U);
}

TEST(RequestRing, GoesOnWithItsIdsAfterItIsCleared) {
    RequestRing ring;
    ring.add(served("/", ""));
    ring.clear();
    EXPECT_EQ(ring.clearedUpTo(), 1U);
    EXPECT_EQ(ring.find(1), nullptr);
    ring.add(served("/", ""));
    EXPECT_EQ(ring.after(0, 5).at(0)->id, 2U);
}

}  // namespace
}  // namespace quillkit
