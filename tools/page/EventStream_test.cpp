#include "tools/page/EventStream.h"

#include "tools/testing/ServedRequests.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quillkit {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

std::size_t countIn(const std::string& text, const std::string& piece) {
    std::size_t count = 0;
    for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) ++count;
    return count;
}

class Events : public ::testing::Test {
  protected:
    void add(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) ring_.add(testing::served("/v1/sdk/heartbeat", ""));
    }
    [[nodiscard]] EventStream streamFrom(std::uint64_t lastId) {
        return {ring_, [this] { return state_; }, lastId};
    }

    RequestRing ring_;
    std::string state_ = R"({"answers":[]})";
};

TEST(EventText, KeepsAnyDataInOneEvent) {
    EXPECT_EQ(eventText("request", 7, "{}"), "event: request\nid: 7\ndata: {}\n\n");
    EXPECT_EQ(eventText("state", 0, "a\n\nevent: b\r\nid: 9\r"),
              "event: state\ndata: a\ndata: \ndata: event: b\ndata: id: 9\n\n");
}

TEST(EventText, ReadsTheIdThatAClientNames) {
    const std::vector<std::pair<std::string_view, std::uint64_t>> cases{
        {"17", 17}, {"", 0}, {"-1", 0}, {"17 ", 0}, {"0x1", 0}, {"99999999999999999999", 0}};
    for (const auto& [text, id] : cases) EXPECT_EQ(lastEventId(text), id) << text;
}

TEST_F(Events, TellsEachRequestOnce) {
    add(2);
    EventStream stream = streamFrom(0);
    const std::string first = stream.next();
    EXPECT_THAT(first, HasSubstr("event: state\ndata: {\"answers\":[]}\n\n"));
    EXPECT_THAT(first, HasSubstr("\nid: 1\n"));
    EXPECT_THAT(first, HasSubstr("\nid: 2\n"));
    EXPECT_EQ(stream.next(), "");
    add(1);
    const std::string second = stream.next();
    EXPECT_EQ(countIn(second, "event: "), 1U);
    EXPECT_THAT(second, HasSubstr("\nid: 3\n"));
    state_ = "{}";
    EXPECT_EQ(stream.next(), "event: state\ndata: {}\n\n");
}

TEST_F(Events, PicksUpBehindTheLastIdOfAClient) {
    add(5);
    EventStream stream = streamFrom(3);
    const std::string text = stream.next();
    EXPECT_EQ(countIn(text, "event: request"), 2U);
    EXPECT_THAT(text, HasSubstr("\nid: 4\n"));
    EXPECT_THAT(text, Not(HasSubstr("event: gap")));
    // An id that was never given is of another collector: all is new.
    EventStream stranger = streamFrom(900);
    EXPECT_EQ(countIn(stranger.next(), "event: request"), 5U);
}

TEST_F(Events, SaysHowManyRequestsASlowClientMissed) {
    add(1);
    EventStream stream = streamFrom(0);
    (void)stream.next();
    add(RequestRing::kCapacity + 10);
    EXPECT_THAT(stream.next(), HasSubstr("event: gap\ndata: 10\n\n"));
    // What is cleared on purpose is not missed.
    add(5);
    ring_.clear();
    add(1);
    EXPECT_THAT(stream.next(), Not(HasSubstr("event: gap")));
}

TEST_F(Events, GivesABoundedPieceAtATime) {
    add(EventStream::kBatch + 1);
    EventStream stream = streamFrom(0);
    EXPECT_EQ(countIn(stream.next(), "event: request"), EventStream::kBatch);
    EXPECT_EQ(countIn(stream.next(), "event: request"), 1U);
}

}  // namespace
}  // namespace quillkit
