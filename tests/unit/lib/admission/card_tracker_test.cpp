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
    time_out();
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
    time_out();
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
    time_out();
    go_offline();
    plug();
    ask();
    EXPECT_TRUE(shown().any_will_do);
    EXPECT_EQ(shown().waiting_for, (std::vector<std::string>{"m1", "m2", "m3"}));
    answer("m1", 7);
    EXPECT_EQ(shown().waiting_for, (std::vector<std::string>{"m2", "m3"}));
    now += 300s;
    end(false);
    EXPECT_FALSE(shown().any_will_do);
}

TEST_F(CardTrackerTest, ASilenceWithNobodyOnTheListNamesAllWhoDidNotAnswer)
{
    plug();
    ask();
    now += 300s;
    time_out();
    go_offline();
    plug();
    ask();
    now += 300s;
    time_out();
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
    result(true, by_answer("m1"));
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
    time_out();
    go_offline();
    plug();
    ask();
    now += 300s;
    time_out();
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
    restart();
    ask();
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
    restart();
    ask();
    EXPECT_EQ(shown().state, State::waiting);
    answer("m1");
    EXPECT_THAT(shown().waiting_for, ElementsAre("m2", "m3"));
}

TEST_F(CardTrackerTest, MainBoardsAreExempt)
{
    tracker.card_written(card(true, main_board), other());
    EXPECT_EQ(shown().state, State::undecided);
    result(true, by_card(), main_board);
    EXPECT_EQ(decisions.at(0).outcome, Outcome::exempt);
    EXPECT_EQ(shown().state, State::exempt);
    tracker.card_written(card(false, main_board), other());
    EXPECT_EQ(shown().state, State::exempt);
}

TEST_F(CardTrackerTest, ABoardWhoseSlotANewerCardHasByNowWasExempt)
{
    tracker.card_written(card(true, main_board), other());
    plug(); // a line card, of which a daemon that lags does not know yet
    result(true, by_card(), main_board);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::exempt) << "unasked would say that there are no modules";
}

TEST_F(CardTrackerTest, WithoutModulesNobodyIsAsked)
{
    tracker.set_modules({});
    plug();
    result(true, by_card());
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
    tracker.take_up({{slot3}, now - 100s, {"m2", "m3"}, {{"m1", 0, "", now - 50s}}, false, ask_unheard()},
                    now);
    plug(true);
    find_request();
    tracker.snapshot_done(now);
    EXPECT_THAT(decisions, IsEmpty());
    EXPECT_EQ(tracker.time_left(shown(), now), 200s);
    EXPECT_THAT(shown().waiting_for, ElementsAre("m2", "m3"));
    now += 200s;
    time_out();
    EXPECT_EQ(decisions.at(0).outcome, Outcome::silence);
    EXPECT_FALSE(decisions[0].complete);
    EXPECT_THAT(decisions[0].silent, ElementsAre("m2", "m3"));
}

TEST_F(CardTrackerTest, OfARememberedCheckAnyWillDoAsBefore)
{
    tracker.take_up({{slot3}, now - 100s, {"m2", "m3"}, {{"m1", 7, "", now - 50s}}, true, ask_unheard()},
                    now);
    plug(true);
    find_request();
    tracker.snapshot_done(now);
    EXPECT_TRUE(shown().any_will_do);
    EXPECT_THAT(shown().waiting_for, ElementsAre("m2", "m3"));
    answer("m2");
    now += 10s;
    end(true);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::passed);
    EXPECT_EQ(decisions[0].decider, "m2");
}

TEST_F(CardTrackerTest, ARememberedCheckThatIsGoneEndedAsItsResultSays)
{
    tracker.take_up({card(true), now - 100s, {"m2"}, {}, false, ask_unheard()}, now);
    plug(true);
    tracker.result_written(1259, true, line_card, daemon(by_timer(), true));
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::silence);
    EXPECT_THAT(decisions[0].silent, ElementsAre("m2"));
    EXPECT_EQ(decisions[0].requested_at, now - 100s);
    EXPECT_FALSE(decisions[0].complete);
    tracker.snapshot_done(now);
    EXPECT_EQ(decisions.size(), 1U);
    EXPECT_EQ(shown().state, State::silence);
}

TEST_F(CardTrackerTest, ARememberedCheckWhoseResultSaysNotHowEndedUnseen)
{
    tracker.take_up({card(true), now - 100s, {"m2"}, {}, false, ask_unheard()}, now);
    plug(true);
    tracker.result_written(1259, true, line_card, unknown(true));
    EXPECT_THAT(decisions, IsEmpty());
    tracker.snapshot_done(now);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(decisions[0].admitted, true);
    EXPECT_FALSE(decisions[0].complete);
    EXPECT_EQ(shown().state, State::passed);
    EXPECT_EQ(shown().decider, "");
}

TEST_F(CardTrackerTest, AResultThatIsOlderThanTheRequestDidNotEndIt)
{
    const Change before = daemon(by_timer(), true);
    tracker.take_up({card(true), now - 100s, {"m2"}, {}, false, ask_unheard()}, now);
    plug(true);
    tracker.result_written(1259, true, line_card, before);
    tracker.snapshot_done(now);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(decisions[0].admitted, std::nullopt);
    EXPECT_EQ(shown().state, State::silence);
}

TEST_F(CardTrackerTest, AResultOfAnotherCardDidNotEndIt)
{
    CardFacts other_card = card(true);
    other_card.serial = "0b";
    tracker.take_up({other_card, now - 100s, {"m2"}, {}, false, ask_unheard()}, now);
    plug(true);
    tracker.result_written(1259, true, line_card, daemon(by_timer(), true));
    tracker.snapshot_done(now);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(decisions[0].card.serial, "0b");
}

TEST_F(CardTrackerTest, AfterALossAnEndedCheckEndedAsItsResultSays)
{
    plug();
    ask();
    write_answer("m2", 1, "hot");
    Change gone = other(true);
    tracker.request_deleted(slot3, gone); // the store tells of it before the result
    EXPECT_THAT(decisions, IsEmpty());
    tracker.result_written(1259, false, line_card, daemon(by_answer("m2"), true));
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::denied);
    EXPECT_EQ(decisions[0].decider, "m2");
    EXPECT_EQ(decisions[0].reason, "hot");
    EXPECT_FALSE(decisions[0].complete);
    tracker.snapshot_done(now);
    EXPECT_EQ(decisions.size(), 1U);
    EXPECT_EQ(shown().state, State::denied);
}

TEST_F(CardTrackerTest, ARememberedDecisionTellsSinceWhenItsResultStands)
{
    Decision before;
    before.card = card(true);
    before.outcome = Outcome::silence;
    before.admitted = true;
    before.decided_at = now - 500s;
    const Change written = daemon(by_timer(), true);
    before.result = written.write;
    tracker.remember_decision(before);
    plug(true);
    tracker.result_written(1259, true, line_card, written);
    EXPECT_EQ(shown().state, State::silence);
    EXPECT_EQ(shown().since, now - 500s);
    EXPECT_TRUE(shown().explained);
}

TEST_F(CardTrackerTest, ARememberedDecisionGivesWayToTheStore)
{
    Decision before;
    before.card = card(true);
    before.outcome = Outcome::silence;
    before.admitted = true;
    before.result = daemon(by_timer()).write;
    tracker.remember_decision(before);
    plug(true);
    tracker.result_written(1259, false, line_card, unknown(true));
    EXPECT_EQ(shown().state, State::denied);
    EXPECT_EQ(shown().since, std::nullopt);
    EXPECT_FALSE(shown().explained);
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
    time_out();
    ASSERT_EQ(decisions.size(), 2U);
    EXPECT_EQ(decisions[1].outcome, Outcome::silence);
    EXPECT_THAT(decisions[1].silent, ElementsAre("m2", "m3"));
}

TEST_F(CardTrackerTest, ARememberedCheckInWhosePlaceAnotherStandsEndedUnseen)
{
    tracker.take_up({card(true), now - 10s, {"m2"}, {}, false, ask_unheard()}, now);
    plug(true);
    ask(true);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(shown().state, State::waiting);
    EXPECT_EQ(shown().requested_at, std::nullopt);
}

TEST_F(CardTrackerTest, ARememberedCardThatIsGoneStillHasItsName)
{
    tracker.take_up({card(true), now - 10s, {"m2"}, {}, false, ask_unheard()}, now);
    tracker.snapshot_done(now);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(decisions[0].card.name, "lc");
    EXPECT_EQ(shown().state, State::absent);
}

TEST_F(CardTrackerTest, AFreshDaemonHasReadItsModulesAgain)
{
    int called = 0;
    std::string heard;
    tracker.on_daemon([&](const std::string &instance, bool started) {
        heard += instance + (started ? " started, " : ", ");
        ++called;
        tracker.set_modules({"m1", "m" + std::to_string(3 + called)});
    });
    plug();
    tracker.result_written(1259, true, line_card, daemon(by_timer(), true));
    EXPECT_EQ(heard, "") << "what is found may be any daemon's";
    ask(true);
    EXPECT_EQ(heard, "daemon1, ") << "but most likely this one lives";
    answer("m1");
    result(true, by_answer("m1"));
    ask();
    EXPECT_EQ(heard, "daemon1, daemon1, ") << "which was there before";
    restart();
    ask();
    ask();
    EXPECT_EQ(heard, "daemon1, daemon1, daemon2 started, ") << "once";
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m6"));
    EXPECT_FALSE(decisions.empty());
}

TEST_F(CardTrackerTest, AListThatIsNotForCertainTheDaemonsMakesNoCheckWhole)
{
    tracker.set_modules({"m1"}, false);
    plug();
    ask();
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1"));
    answer("m1");
    end(true);
    tracker.set_modules({"m1"});
    ask();
    answer("m1");
    end(true);
    ASSERT_THAT(decisions, testing::SizeIs(2));
    EXPECT_FALSE(decisions[0].complete);
    EXPECT_TRUE(decisions[1].complete);
}

TEST_F(CardTrackerTest, AFoundRequestIsOfADaemonWithTheModulesThatAreKnownByThen)
{
    tracker.on_daemon([this](const std::string &, bool) { tracker.set_modules({"m4"}, false); });
    plug(true);
    EXPECT_THAT(shown().waiting_for, testing::IsEmpty());
    ask(true);
    EXPECT_THAT(shown().waiting_for, ElementsAre("m4"));
}

TEST_F(CardTrackerTest, TheFirstDaemonThatIsHeardHasReadItsModulesToo)
{
    tracker.set_modules({});
    tracker.on_daemon([&](const std::string &, bool) { tracker.set_modules({"m1", "m4"}); });
    plug();
    ask();
    EXPECT_TRUE(tracker.knows_modules());
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m4"));
    answer("m1");
    answer("m4");
    end(true);
    EXPECT_TRUE(decisions.at(0).complete);
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
    tracker.card_deleted(slot3, other());
    EXPECT_EQ(shown().state, State::absent);
    tracker.power_off_written(slot3, false);
    EXPECT_EQ(tracker.find(slot3), nullptr);
}

TEST_F(CardTrackerTest, APulledCardsNextOneIsAskedByAll)
{
    plug();
    ask();
    answer("m1");
    tracker.card_deleted(slot3, other());
    tracker.request_deleted(slot3, daemon(by_card()));
    plug();
    ask();
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m2", "m3"));
}

TEST_F(CardTrackerTest, AClockThatRunsFasterHasItsOwnTimeout)
{
    CardTracker quick({}, 15s);
    quick.card_written(card(true), other());
    quick.request_written(slot3, daemon(by_card()));
    EXPECT_EQ(quick.time_left(*quick.find(slot3), now + 5s), 10s);
}

} // namespace
