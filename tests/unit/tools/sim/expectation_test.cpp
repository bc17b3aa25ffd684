// What an expectation wants of a card, and what counts.
#include "expectation.h"

#include <gtest/gtest.h>

namespace cg
{

namespace
{

using namespace std::chrono_literals;

constexpr int32_t tipc = 1003;
const Position third{1, 3, 0};

class Expectation : public testing::Test
{
protected:
    Expectation() { tracker_.set_modules({"m1", "m2"}); }

    void plug(bool online = true)
    {
        admission::CardFacts card;
        card.position = third;
        card.node_type = 3;
        card.tipc_nodeid = tipc;
        card.online = online;
        tracker_.card_written(card, {now_});
    }

    admission::Change daemon(const store::Cause &cause)
    {
        return {now_, false, {++revision_, {"daemon", revision_, cause}}};
    }

    void ask()
    {
        tracker_.request_written(third, daemon({store::Cause::Kind::record, 1, "p_dev.card_info:0:1:3:0"}));
    }

    void answer(const std::string &module, int32_t ret = 0, const std::string &reason = "")
    {
        tracker_.answer_written(third, {module, ret, reason}, {now_, false, {++revision_, {}}});
        cause_ = {store::Cause::Kind::record, revision_, "p_libpub.app_cg_card_check_ack:1:3:0:" + module};
        tracker_.answer_deleted(third, {module, ret, reason}, daemon(cause_));
    }

    // The daemon writes the result and withdraws the request, for the answer that it read last.
    void decide(bool pass)
    {
        tracker_.result_written(tipc, pass, 3, daemon(cause_));
        tracker_.request_deleted(third, daemon(cause_));
        judge_.ended(third);
    }

    // Whether the card is as this says.
    bool holds(const std::string &expected)
    {
        const auto scenario = scenario::parse_scenario("", "expect 1/3 " + expected);
        EXPECT_TRUE(scenario.problems.empty()) << expected;
        return judge_.holds(std::get<scenario::Expect>(scenario.statements.at(0).what));
    }

    admission::Time now_ = admission::Time{} + 1000s;
    uint64_t revision_ = 0;
    store::Cause cause_{};
    admission::CardTracker tracker_;
    Judge judge_{tracker_};
};

} // namespace

TEST_F(Expectation, AbsentAndOfflineNeedNoDecision)
{
    EXPECT_TRUE(holds("absent"));
    EXPECT_FALSE(holds("offline"));
    EXPECT_EQ(judge_.seen(third), "absent");
    judge_.begin(third, now_);
    plug(false);
    EXPECT_TRUE(holds("offline"));
    EXPECT_FALSE(holds("absent"));
    EXPECT_EQ(judge_.seen(third), "offline");
}

TEST_F(Expectation, WaitingNamesJustThoseWhoHaveNotAnswered)
{
    judge_.begin(third, now_);
    plug();
    ask();
    EXPECT_TRUE(holds("waiting"));
    EXPECT_TRUE(holds("waiting for m2, m1"));
    EXPECT_FALSE(holds("waiting for m1"));
    EXPECT_FALSE(holds("passed"));
    answer("m1");
    EXPECT_TRUE(holds("waiting for m2"));
    EXPECT_EQ(judge_.seen(third), "waiting for m2");
    judge_.begin(third, now_ + 1ms);
    EXPECT_FALSE(holds("waiting")) << "the request is older";
}

TEST_F(Expectation, ADecisionHasADeciderAndAReason)
{
    plug();
    ask();
    answer("m1", 1, "too warm");
    decide(false);
    EXPECT_TRUE(holds("denied") && holds("denied by m1") && holds("denied because \"warm\""));
    EXPECT_FALSE(holds("denied by m2"));
    EXPECT_FALSE(holds("denied because \"cold\""));
    EXPECT_FALSE(holds("passed"));
    EXPECT_EQ(judge_.seen(third), "denied by m1: too warm");
}

TEST_F(Expectation, SilenceNamesAllWhoWereSilent)
{
    plug();
    ask();
    answer("m1");
    now_ += 300s;
    cause_ = {store::Cause::Kind::timer};
    decide(true);
    EXPECT_TRUE(holds("admitted by time-out") && holds("admitted by time-out of m2"));
    EXPECT_FALSE(holds("admitted by time-out of m1, m2"));
    EXPECT_FALSE(holds("passed")) << "passed by a module";
}

TEST_F(Expectation, WhatWasDecidedBeforeDoesNotCount)
{
    plug();
    ask();
    answer("m1");
    answer("m2");
    decide(true);
    EXPECT_TRUE(holds("passed by m2"));
    judge_.begin(third, now_);
    EXPECT_FALSE(holds("passed"));
    judge_.ended({1, 4, 0});
    EXPECT_FALSE(holds("passed")) << "the check of another card";
    judge_.ended(third);
    EXPECT_TRUE(holds("passed"));
}

TEST_F(Expectation, TheMarkIsIndependentOfTheState)
{
    EXPECT_TRUE(holds("unmarked"));
    plug();
    EXPECT_FALSE(holds("marked"));
    tracker_.cannot_start_written(third, true);
    EXPECT_TRUE(holds("marked"));
    EXPECT_FALSE(holds("unmarked"));
    EXPECT_EQ(judge_.seen(third), "undecided, marked");
}

} // namespace cg
