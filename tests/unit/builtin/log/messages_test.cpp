// Messages of one part of the platform: to its handler, or to the log, or into the reason of a call.
#include "log/messages.h"

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using platform::Messages;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

struct Heard {
    std::vector<std::pair<int32_t, std::string>> texts;
    Messages::Handler handler()
    {
        return [this](int32_t level, const std::string &text) { texts.emplace_back(level, text); };
    }
};

TEST(MessagesTest, GoToTheHandlerInOneLineEach)
{
    Heard heard;
    Messages messages(heard.handler());
    EXPECT_FALSE(messages.go_to_log());
    LOG_TO(messages, platform::log_warn, "two\nlines of %d", 2);
    EXPECT_THAT(heard.texts, ElementsAre(Pair(platform::log_warn, "two\\x0alines of 2")));
}

TEST(MessagesTest, OfACallThatFailsTheLastOneIsTheReasonAndNoneIsPassedOn)
{
    Heard heard;
    Messages messages(heard.handler());
    {
        Messages::DuringCall call(messages);
        LOG_TO(messages, platform::log_warn, "first");
        LOG_TO(messages, platform::log_error, "last");
        EXPECT_EQ(call.reason(), "last");
    }
    EXPECT_THAT(heard.texts, IsEmpty());
    LOG_TO(messages, platform::log_notice, "later");
    EXPECT_THAT(heard.texts, ElementsAre(Pair(platform::log_notice, "later")));
}

TEST(MessagesTest, OfACallThatSucceedsAllArePassedOnAndCallsNest)
{
    Heard heard;
    Messages messages(heard.handler());
    {
        const Messages::DuringCall outer(messages);
        LOG_TO(messages, platform::log_warn, "outer");
        {
            Messages::DuringCall inner(messages);
            LOG_TO(messages, platform::log_error, "inner");
            EXPECT_EQ(inner.reason(), "inner");
        }
        LOG_TO(messages, platform::log_warn, "outer again");
        EXPECT_THAT(heard.texts, IsEmpty()) << "not before the call has ended";
    }
    EXPECT_THAT(heard.texts,
                ElementsAre(Pair(platform::log_warn, "outer"), Pair(platform::log_warn, "outer again")));
}

TEST(MessagesTest, WithoutAHandlerTheReasonIsKnownAllTheSame)
{
    Messages messages({});
    EXPECT_TRUE(messages.go_to_log());
    Messages::DuringCall call(messages);
    testing::internal::CaptureStderr();
    LOG_TO(messages, platform::log_error, "why");
    (void)testing::internal::GetCapturedStderr();
    EXPECT_EQ(call.reason(), "why");
}

} // namespace
