#include "QLSDKCoreKit/platform/internal/ThreadEnd.h"

#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <pthread.h>

namespace qlsdk::platform {
namespace {

std::vector<std::thread::id> ended;

thread_local ThreadEnd first{.run = [] { ended.push_back(std::this_thread::get_id()); }};
thread_local ThreadEnd second{.run = first.run};

TEST(ThreadEnd, IsToldOnItsOwnThreadUnlessTheSystemHasNoRoomForIt) {
    std::vector<pthread_key_t> keys;
    for (pthread_key_t key{}; ::pthread_key_create(&key, nullptr) == 0;) keys.push_back(key);
    std::thread([] { EXPECT_FALSE(atThreadEnd(first)); }).join();
    EXPECT_TRUE(ended.empty());

    for (const pthread_key_t key : keys) ::pthread_key_delete(key);
    ASSERT_TRUE(atThreadEnd(first)) << "of the main thread, which goes on";
    std::thread::id ending;
    std::thread([&ending] {
        ending = std::this_thread::get_id();
        EXPECT_TRUE(atThreadEnd(first));
        EXPECT_TRUE(atThreadEnd(second));
        EXPECT_TRUE(ended.empty());
    }).join();
    EXPECT_EQ(ended, std::vector<std::thread::id>(2, ending));
}

}  // namespace
}  // namespace qlsdk::platform
