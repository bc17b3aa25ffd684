// Cards followed from outside: stories in the order in which the daemon writes.
#include "tracker_fixture.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(CardTrackerTest, ACardWaitsForThoseWhoHaveNotAnswered)
{
    plug();
    ask();
    EXPECT_EQ(shown().state, State::waiting);
    now += 2s;
    answer("m2");
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m3"));
    EXPECT_EQ(tracker.time_left(shown(), now), 298s);
    EXPECT_EQ(shown().since, now - 2s);
    EXPECT_THAT(decisions, IsEmpty());
}

TEST_F(CardTrackerTest, TheLastPassDecides)
{
    plug();
    ask();
    for (const char *module : {"m2", "m1", "m3"}) {
        now += 1s;
        answer(module);
    }
    end(true);
    ASSERT_EQ(decisions.size(), 1U);
    const Decision &decision = decisions.front();
    EXPECT_EQ(decision.outcome, Outcome::passed);
    EXPECT_EQ(decision.decider, "m3");
    EXPECT_EQ(decision.admitted, true);
    EXPECT_EQ(decision.requested_at, now - 3s);
    EXPECT_EQ(decision.answers.at(1).took, 2s);
    EXPECT_TRUE(decision.complete);
    EXPECT_THAT(decision.silent, IsEmpty());
    EXPECT_EQ(shown().state, State::passed);
    EXPECT_EQ(shown().since, now);
}

TEST_F(CardTrackerTest, OneDenyDecides)
{
    tracker.set_role(1);
    plug();
    ask();
    answer("m1");
    answer("m2", -1, "too hot");
    end(false);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::denied);
    EXPECT_EQ(decisions[0].decider, "m2");
    EXPECT_EQ(decisions[0].reason, "too hot");
    EXPECT_EQ(decisions[0].admitted, false);
    EXPECT_EQ(decisions[0].role, 1);
    EXPECT_EQ(shown().state, State::denied);
}

TEST_F(CardTrackerTest, ADenyWithoutReasonHasTheSystemLogsOne)
{
    plug();
    ask();
    answer("m2", 1);
    end(false);
    EXPECT_EQ(decisions.at(0).reason, "m2 not compatible");
}

TEST_F(CardTrackerTest, WhenTheTimeIsUpTheSilentAreNamed)
{
    plug();
    ask();
    answer("m1");
    now += 300s;
    end(true);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::silence);
    EXPECT_EQ(decisions[0].decider, "");
    EXPECT_THAT(decisions[0].silent, ElementsAre("m2", "m3"));
    EXPECT_EQ(shown().state, State::silence);
}

TEST_F(CardTrackerTest, SilenceOfAllIsSilence)
{
    plug();
    ask();
    now += 300s;
    end(true);
    EXPECT_EQ(decisions.at(0).outcome, Outcome::silence);
    EXPECT_THAT(decisions[0].silent, ElementsAre("m1", "m2", "m3"));
}

TEST_F(CardTrackerTest, ALastPassAfterALongTimeIsNoSilence)
{
    plug();
    ask();
    answer("m1");
    answer("m2");
    now += 299s;
    answer("m3");
    end(true);
    EXPECT_EQ(decisions.at(0).outcome, Outcome::passed);
    EXPECT_EQ(decisions[0].decider, "m3");
}

TEST_F(CardTrackerTest, ADaemonThatKnowsFewerModulesIsBelieved)
{
    plug();
    ask();
    answer("m1");
    end(true);
    EXPECT_EQ(decisions.at(0).outcome, Outcome::passed);
    EXPECT_EQ(decisions[0].decider, "m1");
}

TEST_F(CardTrackerTest, WithNobodyLeftOnTheListAnyModuleWillDo)
{
    plug();
    ask();
    EXPECT_FALSE(shown().any_will_do);
    now += 300s;
    end(true);
    go_offline();
    plug();
    ask();
    EXPECT_TRUE(shown().any_will_do);
    EXPECT_EQ(shown().waiting_for, (std::vector<std::string>{"m1", "m2", "m3"}));
    answer("m1", 7);
    EXPECT_EQ(shown().waiting_for, (std::vector<std::string>{"m2", "m3"}));
    now += 300s;
    tracker.result_written(1259, false, now, false);
    EXPECT_TRUE(shown().any_will_do) << "the request still stands";
    tracker.request_deleted(slot3, now, false);
    EXPECT_FALSE(shown().any_will_do);
}

TEST_F(CardTrackerTest, ASilenceWithNobodyOnTheListNamesAllWhoDidNotAnswer)
{
    plug();
    ask();
    now += 300s;
    end(true);
    go_offline();
    plug();
    ask();
    now += 300s;
    end(true);
    EXPECT_EQ(decisions.back().outcome, Outcome::silence);
    EXPECT_EQ(decisions.back().silent, (std::vector<std::string>{"m1", "m2", "m3"}));
}

TEST_F(CardTrackerTest, ALaterPassLiftsADenial)
{
    plug();
    ask();
    answer("m1", 1, "no");
    end(false);
    answer("m2");
    answer("m3");
    answer("m1");
    tracker.result_written(1259, true, now, false);
    ASSERT_EQ(decisions.size(), 2U);
    EXPECT_EQ(decisions[1].outcome, Outcome::passed);
    EXPECT_EQ(decisions[1].decider, "m1");
    EXPECT_EQ(shown().state, State::passed);
}

TEST_F(CardTrackerTest, AReturnedCardIsPassedByTheFirstWhoSpeaks)
{
    plug();
    ask();
    answer("m1");
    answer("m2");
    answer("m3");
    end(true);
    go_offline();
    EXPECT_EQ(shown().state, State::offline);
    plug();
    ask();
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m2", "m3")); // any of them will do
    now += 1s;
    answer("m2");
    end(true);
    ASSERT_EQ(decisions.size(), 2U);
    EXPECT_EQ(decisions[1].outcome, Outcome::passed);
    EXPECT_EQ(decisions[1].decider, "m2");
}

TEST_F(CardTrackerTest, AReturnedCardWithoutAnyAnswerIsPassedBySilence)
{
    plug();
    ask();
    now += 300s;
    end(true);
    go_offline();
    plug();
    ask();
    now += 300s;
    end(true);
    ASSERT_EQ(decisions.size(), 2U);
    EXPECT_EQ(decisions[1].outcome, Outcome::silence);
    EXPECT_THAT(decisions[1].silent, ElementsAre("m1", "m2", "m3"));
}

TEST_F(CardTrackerTest, ACardThatLeavesUndecidedIsWithdrawn)
{
    plug();
    ask();
    answer("m1");
    go_offline();
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::withdrawn);
    EXPECT_EQ(decisions[0].admitted, std::nullopt);
    EXPECT_EQ(shown().state, State::offline);
}

TEST_F(CardTrackerTest, ARestartedDaemonAsksAll)
{
    plug();
    ask();
    answer("m1");
    now += 100s;
    ask(); // by its successor
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m2", "m3"));
    EXPECT_EQ(tracker.time_left(shown(), now), 300s);
    EXPECT_THAT(shown().answers, IsEmpty());
}

TEST_F(CardTrackerTest, ARestartedDaemonAsksAgainForAPassedCard)
{
    plug();
    ask();
    answer("m1");
    answer("m2");
    answer("m3");
    end(true);
    ask();
    EXPECT_EQ(shown().state, State::waiting);
    answer("m1");
    EXPECT_THAT(shown().waiting_for, ElementsAre("m2", "m3"));
}

TEST_F(CardTrackerTest, MainBoardsAreExempt)
{
    tracker.card_written(card(true, main_board), now, false);
    EXPECT_EQ(shown().state, State::undecided);
    tracker.result_written(1259, true, now, false);
    EXPECT_EQ(decisions.at(0).outcome, Outcome::exempt);
    EXPECT_EQ(shown().state, State::exempt);
    tracker.card_written(card(false, main_board), now, false);
    EXPECT_EQ(shown().state, State::exempt);
}

TEST_F(CardTrackerTest, WithoutModulesNobodyIsAsked)
{
    tracker.set_modules({});
    plug();
    tracker.result_written(1259, true, now, false);
    EXPECT_EQ(decisions.at(0).outcome, Outcome::unasked);
    EXPECT_EQ(shown().state, State::unasked);
}

TEST_F(CardTrackerTest, AStrangersAnswerDecidesNothing)
{
    plug();
    ask();
    answer("m9", 1, "stranger");
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m2", "m3"));
    EXPECT_FALSE(shown().answers.at(0).registered);
    answer("m1", 1, "known");
    end(false);
    EXPECT_EQ(decisions.at(0).decider, "m1");
}

TEST_F(CardTrackerTest, WhatWasThereBeforeHasNoTimes)
{
    plug(true);
    ask(true);
    EXPECT_EQ(shown().state, State::waiting);
    EXPECT_EQ(shown().since, std::nullopt);
    EXPECT_EQ(tracker.time_left(shown(), now), std::nullopt);
    answer("m1");
    end(true);
    EXPECT_EQ(decisions.at(0).outcome, Outcome::passed);
    EXPECT_FALSE(decisions[0].complete);
    EXPECT_EQ(decisions[0].answers.at(0).took, std::nullopt);
}

TEST_F(CardTrackerTest, ARememberedCheckGoesOn)
{
    tracker.remember_open({{slot3}, now - 100s, {"m2", "m3"}, {{"m1", 0, "", now - 50s}}});
    plug(true);
    ask(true);
    tracker.snapshot_done(now);
    EXPECT_THAT(decisions, IsEmpty());
    EXPECT_EQ(tracker.time_left(shown(), now), 200s);
    EXPECT_THAT(shown().waiting_for, ElementsAre("m2", "m3"));
    now += 200s;
    end(true);
    EXPECT_EQ(decisions.at(0).outcome, Outcome::silence);
    EXPECT_FALSE(decisions[0].complete);
    EXPECT_THAT(decisions[0].silent, ElementsAre("m2", "m3"));
}

TEST_F(CardTrackerTest, OfARememberedCheckAnyWillDoAsBefore)
{
    tracker.remember_open({{slot3}, now - 100s, {"m2", "m3"}, {{"m1", 7, "", now - 50s}}, true});
    plug(true);
    ask(true);
    tracker.snapshot_done(now);
    EXPECT_TRUE(shown().any_will_do);
    EXPECT_THAT(shown().waiting_for, ElementsAre("m2", "m3"));
    answer("m2");
    now += 10s; // later than a last PASS has its result where the list was wrong
    end(true);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::passed);
    EXPECT_EQ(decisions[0].decider, "m2");
}

TEST_F(CardTrackerTest, ARememberedCheckThatIsGoneEndedUnseen)
{
    tracker.remember_open({{slot3}, now - 100s, {"m2"}, {}});
    tracker.result_written(1259, true, now, true);
    plug(true);
    tracker.snapshot_done(now);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(decisions[0].admitted, true);
    EXPECT_FALSE(decisions[0].complete);
    EXPECT_EQ(shown().state, State::passed);
}

TEST_F(CardTrackerTest, AfterALossAnEndedCheckEndedUnseen)
{
    plug();
    ask();
    tracker.request_deleted(slot3, now, true); // the store tells of it before the result
    EXPECT_THAT(decisions, IsEmpty());
    tracker.result_written(1259, false, now, true);
    tracker.snapshot_done(now);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(decisions[0].admitted, false);
    EXPECT_EQ(shown().state, State::denied);
}

TEST_F(CardTrackerTest, ARememberedDecisionTellsHowAndSinceWhen)
{
    Decision before;
    before.card = card(true);
    before.outcome = Outcome::silence;
    before.admitted = true;
    before.decided_at = now - 500s;
    tracker.remember_decision(before);
    plug(true);
    tracker.result_written(1259, true, now, true);
    EXPECT_EQ(shown().state, State::silence);
    EXPECT_EQ(shown().since, now - 500s);
}

TEST_F(CardTrackerTest, ARememberedDecisionGivesWayToTheStore)
{
    Decision before;
    before.card = card(true);
    before.outcome = Outcome::silence;
    before.admitted = true;
    tracker.remember_decision(before);
    plug(true);
    tracker.result_written(1259, false, now, true);
    EXPECT_EQ(shown().state, State::denied);
    EXPECT_EQ(shown().since, std::nullopt);
}

TEST_F(CardTrackerTest, AnEarlierRequestsTimerEndsALaterCheckAtItsOwnTime)
{
    plug();
    ask();
    now += 100s;
    go_offline();
    now += 100s;
    plug();
    ask();
    now += 10s;
    answer("m1");
    now += 90s; // 300 after the first request
    end(true);
    ASSERT_EQ(decisions.size(), 2U);
    EXPECT_EQ(decisions[1].outcome, Outcome::silence);
    EXPECT_THAT(decisions[1].silent, ElementsAre("m2", "m3"));
}

TEST_F(CardTrackerTest, ARememberedCheckThatIsTooOldToStandEndsUnseen)
{
    tracker.remember_card(card(true));
    tracker.remember_open({{slot3}, now - 400s, {"m2"}, {}});
    plug(true);
    ask(true);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(shown().state, State::waiting);
    EXPECT_EQ(shown().requested_at, std::nullopt);
}

TEST_F(CardTrackerTest, ARememberedCardThatIsGoneStillHasItsName)
{
    tracker.remember_card(card(true));
    tracker.remember_open({{slot3}, now - 10s, {"m2"}, {}});
    tracker.snapshot_done(now);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(decisions[0].card.name, "lc");
    EXPECT_EQ(shown().state, State::absent);
}

TEST_F(CardTrackerTest, AFreshDaemonHasReadItsModulesAnew)
{
    int told = 0;
    tracker.on_fresh_daemon([&] {
        ++told;
        tracker.set_modules({"m1", "m4"});
    });
    plug();
    ask();
    EXPECT_EQ(told, 0);
    ask();
    EXPECT_EQ(told, 1);
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m4"));
}

TEST_F(CardTrackerTest, AnswersWithoutEndAreNotKeptWithoutEnd)
{
    plug();
    ask();
    answer("m1", 0, "first");
    for (int i = 0; i < 1000; ++i) {
        answer("m2");
        answer("stranger" + std::to_string(i));
    }
    EXPECT_EQ(shown().answers.size(), 33U);
    EXPECT_EQ(shown().answers.front().reason, "first");
    EXPECT_EQ(shown().answers.back().module, "stranger999");
}

TEST_F(CardTrackerTest, APulledCardIsAbsentAndForgottenWhenNothingNamesIt)
{
    plug();
    tracker.power_off_written(slot3, true);
    tracker.card_deleted(slot3, now);
    EXPECT_EQ(shown().state, State::absent);
    tracker.power_off_written(slot3, false);
    EXPECT_EQ(tracker.find(slot3), nullptr);
}

TEST_F(CardTrackerTest, APulledCardsNextOneIsAskedByAll)
{
    plug();
    ask();
    answer("m1");
    tracker.card_deleted(slot3, now);
    tracker.request_deleted(slot3, now, false);
    plug();
    ask();
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m2", "m3"));
}

TEST_F(CardTrackerTest, AClockThatRunsFasterHasItsOwnTimeout)
{
    CardTracker quick([this](const Decision &decision) { decisions.push_back(decision); }, 15s);
    quick.set_modules({"m1"});
    quick.card_written(card(true), now, false);
    quick.request_written(slot3, now, false);
    quick.result_written(1259, true, now + 15s, false);
    EXPECT_EQ(decisions.at(0).outcome, Outcome::silence);
}

TEST(OutcomeNames, GoThereAndBack)
{
    for (const auto outcome : {Outcome::passed, Outcome::silence, Outcome::denied, Outcome::exempt,
                               Outcome::unasked, Outcome::withdrawn, Outcome::unseen}) {
        EXPECT_EQ(outcome_of(word_of(outcome)), outcome);
    }
    EXPECT_EQ(outcome_of("perhaps"), std::nullopt);
    EXPECT_STREQ(text_of(State::offline), "off line");
}

} // namespace
