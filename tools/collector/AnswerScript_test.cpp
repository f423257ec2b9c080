#include "tools/collector/AnswerScript.h"

#include "tools/cli/Failure.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quillkit {
namespace {

using ::testing::ElementsAre;

TEST(AnswerScript, TakesMoreAnswersLater) {
    const std::vector<std::string> first{"503", "stall"};
    AnswerScript script(first);
    const std::vector<std::string> later{"429:X-Retry-After-Millis=5000", "drop", "stall"};
    script.add(later);
    EXPECT_EQ(script.stallCount(), 2U);
    EXPECT_EQ(script.next().status, 503);
    // Each text reads back as the answer that it came from.
    EXPECT_THAT(script.pending(), ElementsAre("stall", "429:X-Retry-After-Millis=5000", "drop", "stall"));
    script.clear();
    EXPECT_THAT(script.pending(), ElementsAre());
    EXPECT_EQ(script.next().status, 200);
}

TEST(AnswerScript, TakesAllAnswersOrNone) {
    AnswerScript script({});
    const std::vector<std::string> mixed{"503", "soon"};
    EXPECT_THROW(script.add(mixed), UsageError);
    EXPECT_THAT(script.pending(), ElementsAre());
}

}  // namespace
}  // namespace quillkit
