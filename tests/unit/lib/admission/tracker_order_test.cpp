// Cards followed from outside while the daemon is behind, or where the beginning was not seen.
#include "tracker_fixture.h"

namespace
{

using testing::ElementsAre;

using TrackerOrderTest = CardTrackerTest;

TEST_F(TrackerOrderTest, TheFirstOfTwoDenialsDecidesAlsoWhenBothCameBeforeTheResult)
{
    plug();
    ask();
    write_answer("m1", 1, "first");
    write_answer("m2", 1, "second");
    read_answer("m1");
    end(false);
    read_answer("m2");
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].decider, "m1");
    EXPECT_EQ(decisions[0].reason, "first");
    EXPECT_TRUE(decisions[0].complete);
    unplug();
    EXPECT_EQ(shown().state, State::offline);
    EXPECT_EQ(shown().last->decider, "m1");
}

TEST_F(TrackerOrderTest, AnAnswerThatWasOverwrittenUnreadCountsAlsoForTheNextCheck)
{
    plug();
    ask();
    write_answer("m1", 1, "as the daemon reads it");
    const Cause overwritten = by_answer("m1");
    write_answer("m1", 1, "as the record says it by then");
    go_offline();
    plug();
    ask();
    tracker.answer_deleted(slot3, {"m1", 1, "as the record says it by then"}, daemon(overwritten));
    result(false, overwritten);
    ASSERT_EQ(decisions.size(), 2U);
    EXPECT_EQ(decisions[1].decider, "m1");
    EXPECT_EQ(decisions[1].reason, "as the daemon reads it");
    ASSERT_EQ(decisions[1].answers.size(), 2U);
    EXPECT_EQ(decisions[1].answers[0].reason, "as the record says it by then");
    EXPECT_TRUE(decisions[1].complete);
}

TEST_F(TrackerOrderTest, WhatAnAnswerSaidThatNobodyHeardIsNotKnownFromALaterOne)
{
    plug();
    write_answer("m1", 1, "nobody heard this");
    ask();
    Cause unheard = by_answer("m1");
    unheard.revision += 1000;
    tracker.answer_deleted(slot3, {"m1", 1, "as the record says it by then"}, daemon(unheard));
    result(false, unheard);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].decider, "m1");
    EXPECT_FALSE(decisions[0].complete);
}

TEST_F(TrackerOrderTest, AStrangersPassBehindTheLastOneDecidesNothing)
{
    plug();
    ask();
    for (const char *module : {"m1", "m2", "m3", "foreign"}) {
        write_answer(module);
    }
    for (const char *module : {"m1", "m2", "m3"}) {
        read_answer(module);
    }
    end(true);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::passed);
    EXPECT_EQ(decisions[0].decider, "m3");
}

TEST_F(TrackerOrderTest, ADenialBehindTheLastPassIsADecisionOfItsOwn)
{
    plug();
    ask();
    answer("m1");
    answer("m2");
    write_answer("m3");
    write_answer("m1", 1, "oops");
    read_answer("m3");
    end(true);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::passed);
    EXPECT_EQ(decisions[0].decider, "m3");
    read_answer("m1");
    end(false);
    ASSERT_EQ(decisions.size(), 2U);
    EXPECT_EQ(decisions[1].outcome, Outcome::denied);
    EXPECT_EQ(decisions[1].decider, "m1");
    EXPECT_EQ(decisions[1].reason, "oops");
}

TEST_F(TrackerOrderTest, ADenialThatIsReadAfterTheTimeWasUpIsStillWhoseItWas)
{
    plug();
    ask();
    now += 300s;
    write_answer("m2", 1, "late");
    write_answer("m3", 1, "later");
    time_out();
    read_answer("m2");
    end(false);
    ASSERT_EQ(decisions.size(), 2U);
    EXPECT_EQ(decisions[0].outcome, Outcome::silence);
    EXPECT_EQ(decisions[1].outcome, Outcome::denied);
    EXPECT_EQ(decisions[1].decider, "m2");
}

TEST_F(TrackerOrderTest, ACardThatWentOffLineCanBeDeniedAgain)
{
    plug();
    ask();
    answer("m1", 1, "no");
    end(false);
    unplug();
    answer("m2", 1, "nor I");
    end(false);
    ASSERT_EQ(decisions.size(), 2U);
    EXPECT_EQ(decisions[1].decider, "m2");
    EXPECT_EQ(decisions[1].reason, "nor I");
}

TEST_F(TrackerOrderTest, ACheckWhoseBeginningWasNotSeenEndsBySilenceLongAfterTheLastPass)
{
    tracker.set_modules({"m1", "m2"});
    plug(true);
    ask(true);
    tracker.snapshot_done(now);
    answer("m1");
    now += 190s;
    time_out();
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::silence);
    EXPECT_THAT(decisions[0].silent, ElementsAre("m2"));
    EXPECT_FALSE(decisions[0].complete);
}

TEST_F(TrackerOrderTest, TheSameHoldsOfOneThatTheDaemonToldOf)
{
    tracker.remember_list(slot3, {"m1", "m2"}, false);
    plug(true);
    ask(true);
    tracker.snapshot_done(now);
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m2"));
    answer("m1");
    now += 190s;
    time_out();
    EXPECT_EQ(decisions.at(0).outcome, Outcome::silence);
    EXPECT_THAT(decisions[0].silent, ElementsAre("m2"));
}

TEST_F(TrackerOrderTest, ACardThatWasThereBeforeIsAskedAgainByAFreshDaemonOnly)
{
    int told = 0;
    tracker.on_daemon([&](const std::string &, bool) { ++told; });
    tracker.set_modules({"m1"});
    plug(true);
    tracker.result_written(1259, true, line_card, daemon(by_timer(), true));
    tracker.snapshot_done(now);
    now += 50s;
    restart();
    ask();
    EXPECT_EQ(told, 1);
    answer("m1");
    end(true);
    EXPECT_EQ(decisions.at(0).decider, "m1");
    EXPECT_TRUE(decisions[0].complete);
}

TEST_F(TrackerOrderTest, AnotherCardHasNothingOfItsForerunnersPast)
{
    Decision before;
    before.card = card(true);
    before.card.serial = "0b";
    before.outcome = Outcome::silence;
    before.admitted = true;
    before.silent = {"m1"};
    before.result = daemon(by_timer()).write;
    tracker.remember_decision(before);
    plug(true);
    write_answer("m1");
    tracker.result_written(1259, true, line_card, daemon(by_answer("m1"), true));
    tracker.snapshot_done(now);
    EXPECT_EQ(shown().state, State::passed);
    EXPECT_EQ(shown().decider, "m1");
    EXPECT_EQ(shown().since, std::nullopt);
}

TEST_F(TrackerOrderTest, OfTwoModulesWithOneNameOneIsWaitedForInVain)
{
    tracker.set_modules({"m1", "m1"});
    plug();
    ask();
    answer("m1");
    answer("m1");
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1"));
    now += 300s;
    time_out();
    EXPECT_EQ(decisions.at(0).outcome, Outcome::silence);
    EXPECT_THAT(decisions[0].silent, ElementsAre("m1"));
}

TEST_F(TrackerOrderTest, AResultGoesToTheCardThatWaitsWhereTwoHaveOneId)
{
    CardFacts twin = card(true);
    twin.position = {1, 2, 0};
    tracker.card_written(twin, other());
    plug();
    ask();
    answer("m1", 1, "no");
    end(false);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].card.position, slot3);
    EXPECT_EQ(decisions[0].decider, "m1");
}

TEST_F(TrackerOrderTest, ATimeToAnswerThatCannotBeIsNone)
{
    plug();
    ask();
    now -= 10s; // a clock was set
    answer("m1");
    now += 3600s;
    answer("m2");
    EXPECT_EQ(shown().answers.at(0).took, std::nullopt);
    EXPECT_EQ(shown().answers.at(1).took, std::nullopt);
    now -= 3580s;
    answer("m3");
    EXPECT_EQ(shown().answers.at(2).took, 10s);
}

TEST_F(TrackerOrderTest, AnAnswerForACardThatIsNotKnownIsHeardAndNotKept)
{
    std::vector<std::string> heard;
    tracker.on_answer([&](const Position &position, const Answer &answer, bool late) {
        EXPECT_EQ(position, slot3);
        EXPECT_EQ(answer.at, now);
        EXPECT_FALSE(late);
        heard.push_back(answer.module + (answer.registered ? "" : "?"));
    });
    write_answer("m1");
    write_answer("stranger");
    write_answer("m2", 0, "", true);
    EXPECT_THAT(heard, ElementsAre("m1", "stranger?"));
    EXPECT_EQ(tracker.find(slot3), nullptr);
}

TEST_F(TrackerOrderTest, AnAnswerAfterTheDecisionIsToldOnceAndAtOnce)
{
    std::vector<std::string> late;
    std::vector<std::string> all;
    tracker.on_answer([&](const Position &position, const Answer &told, bool is_late) {
        EXPECT_EQ(position, slot3);
        EXPECT_TRUE(told.took);
        all.push_back(told.module);
        if (is_late) {
            late.push_back(told.module);
        }
    });
    plug();
    ask();
    answer("m1", 1, "no");
    end(false);
    EXPECT_THAT(late, testing::IsEmpty());
    EXPECT_EQ(decisions.at(0).told_before, 0U);
    for (const char *module : {"m2", "m3", "m1"}) {
        answer(module);
    }
    result(true, by_answer("m1"));
    EXPECT_THAT(late, ElementsAre("m2", "m3", "m1"));
    EXPECT_THAT(all, ElementsAre("m1", "m2", "m3", "m1"));
    ASSERT_EQ(decisions.size(), 2U);
    EXPECT_EQ(decisions[1].answers.size(), 4U);
    EXPECT_EQ(decisions[1].told_before, 4U);
    ask();
    answer("m2");
    EXPECT_THAT(late, testing::SizeIs(3));
}

TEST_F(TrackerOrderTest, ADenialStandsOffLineToo)
{
    plug();
    ask();
    answer("m1", 1, "no");
    end(false);
    EXPECT_TRUE(shown().denied);
    unplug();
    EXPECT_EQ(shown().state, State::offline);
    EXPECT_TRUE(shown().denied);
    tracker.result_deleted(1259, daemon(by_card()));
    EXPECT_FALSE(shown().denied);
}

} // namespace
