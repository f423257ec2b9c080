#include "QLSDKCoreKit/platform/linux/http/ResponseCollector.h"

#include <string>

#include <gtest/gtest.h>

namespace qlsdk::platform {

namespace {

using namespace std::chrono_literals;
using Next = ResponseCollector::Next;

constexpr ResponseCollector::TimePoint kNow{1h};

ResponseCollector withHead(BodyCeiling ceiling) {
    ResponseCollector collector(ceiling);
    for (const char* line : {"HTTP/1.1 103 Early Hints\r\n", "\r\n", "HTTP/1.1 200 OK\r\n"}) {
        EXPECT_EQ(collector.addHeaderLine(line, kNow - 1s), Next::goOn);
    }
    EXPECT_FALSE(collector.discardDeadline());
    EXPECT_EQ(collector.addHeaderLine("\r\n", kNow), Next::goOn);
    return collector;
}

}  // namespace

TEST(ResponseCollector, KeepsABodyUpToItsCeilingHoweverLongItTakes) {
    ResponseCollector collector = withHead({5});
    EXPECT_FALSE(collector.discardDeadline());
    EXPECT_EQ(collector.addBody(Data(3, 'a'), kNow), Next::goOn);
    EXPECT_EQ(collector.addBody(Data(3, 'b'), kNow), Next::tooMuch);
    EXPECT_EQ(collector.addBody(Data(2, 'c'), kNow + 1h), Next::goOn);
    EXPECT_EQ(textOf(collector.take().body), "aaacc");
}

// What the connection is worth: neither a longer body nor a slower one is read to its end.
TEST(ResponseCollector, ReadsOfAnUnwantedBodySoManyBytesAndSoLong) {
    constexpr std::size_t kMost = 65'536;
    ResponseCollector slow = withHead({});
    EXPECT_EQ(slow.discardDeadline(), kNow + 2s);
    EXPECT_EQ(slow.addBody(Data(1), kNow + 2s - 1ns), Next::goOn);
    EXPECT_EQ(slow.addBody(Data(1), kNow + 2s), Next::enough);

    ResponseCollector large = withHead({});
    EXPECT_EQ(large.addBody(Data(kMost), kNow), Next::goOn);
    EXPECT_EQ(large.addBody(Data(1), kNow), Next::enough);
    EXPECT_TRUE(large.take().body.empty());
}

TEST(ResponseCollector, TakesSoManyBytesOfHeadersTrailersIncluded) {
    ResponseCollector collector = withHead({});
    const std::size_t used = std::string("HTTP/1.1 103 Early Hints\r\n\r\nHTTP/1.1 200 OK\r\n\r\n").size();
    EXPECT_EQ(collector.addHeaderLine(std::string(65'536 - used, 'x'), kNow), Next::goOn);
    EXPECT_EQ(collector.addHeaderLine("x", kNow), Next::tooMuch);
}

}  // namespace qlsdk::platform
