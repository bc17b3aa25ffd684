// Plays on a real store, without a daemon: what needs one is for the system tests.
#include "play.h"

#include <gmock/gmock.h>

#include <csignal>
#include <sstream>

#include "base/failure.h"
#include "unit/support/store_test.h"

namespace cg
{

namespace
{

using testing::HasSubstr;

class PlayTest : public StoreTest
{
protected:
    PlayTest() { options_.socket = folder_.path("nobody"); }

    int play(const std::string &text)
    {
        const auto scenario = scenario::parse_scenario("file", text);
        EXPECT_TRUE(scenario.problems.empty()) << scenario.problems.at(0).message;
        return cg::play(output_, options_, {scenario});
    }

    // How many cards there are.
    [[nodiscard]] std::string cards() const
    {
        return tell_server("SELECT 1\r\nSCARD @idx:p_dev.card_info\r\n");
    }

    SimOptions options_;
    std::ostringstream out_;
    std::ostringstream err_;
    Output output_{out_, err_, false, "cg_sim"};
};

} // namespace

TEST_F(PlayTest, CardsComeAndGo)
{
    EXPECT_EQ(
        play("role master\nplug 1/3 offline name=x\nexpect 1/3 offline\nonline 1/3\nexpect 1/3 unmarked\n"
             "pull 1/3\nexpect 1/3 absent\nplug 1/4"),
        done);
    EXPECT_THAT(out_.str(), HasSubstr("3 of 3 expectations held."));
    EXPECT_THAT(err_.str(), HasSubstr("cannot ask the daemon which modules it knows"));
    EXPECT_THAT(err_.str(), HasSubstr("chassis  this device is master"));
    EXPECT_THAT(err_.str(), HasSubstr("plugged: line card 'x', offline"));
    EXPECT_EQ(cards(), "+OK\r\n:0\r\n+OK\r\n");
}

TEST_F(PlayTest, AMissFailsAndCardsMayBeKept)
{
    options_.keep = true;
    EXPECT_EQ(play("plug 1/3\nexpect 1/3 passed within 10ms"), failed);
    EXPECT_THAT(out_.str(), HasSubstr("0 of 1 expectations held."));
    EXPECT_EQ(cards(), "+OK\r\n:1\r\n+OK\r\n");
    EXPECT_THROW(play("wait 1ms\nplug 1/3"), Failure) << "it is there already";
    options_.keep = false;
    EXPECT_EQ(play("plug 1/4"), done);
    EXPECT_EQ(cards(), "+OK\r\n:1\r\n+OK\r\n") << "the other one is left alone";
}

TEST_F(PlayTest, WhatFailsLeavesNoCardBehind)
{
    EXPECT_THROW(play("plug 1/3\noffline 1/4"), Failure);
    EXPECT_THAT(out_.str(), HasSubstr("0 of 0 expectations held; the play was aborted."));
    EXPECT_EQ(cards(), "+OK\r\n:0\r\n+OK\r\n");
    setenv("VX_MOM_DEADLINE_MS", "100", 1);
    options_.endpoint = "unix:" + folder_.path("elsewhere");
    EXPECT_THROW(play("plug 1/3"), Failure) << "there is no store";
    unsetenv("VX_MOM_DEADLINE_MS");
}

} // namespace cg
