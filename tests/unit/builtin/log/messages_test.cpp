// Messages of one part of the platform: to its handler, or to the log.
#include "log/messages.h"

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using platform::Messages;
using testing::ElementsAre;
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

TEST(MessagesTest, WhatTheHandlerThrowsStaysWithIt)
{
    Messages messages([](int32_t, const std::string &) { throw std::runtime_error("mine"); });
    EXPECT_NO_THROW(LOG_TO(messages, platform::log_warn, "text"));
}

} // namespace
