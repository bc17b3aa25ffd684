// Checks that a restart of the daemon cuts off, and what only looks like it.
#include "tracker_fixture.h"

#include <array>
#include <functional>

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class TrackerRestartTest : public CardTrackerTest
{
protected:
    void expect_cut_off(const Decision &decision)
    {
        EXPECT_EQ(decision.outcome, Outcome::withdrawn);
        EXPECT_EQ(decision.reason, daemon_restarted);
        EXPECT_TRUE(was_cut_off(decision));
        EXPECT_EQ(decision.admitted, std::nullopt);
        EXPECT_EQ(decision.decider, "");
    }
};

TEST_F(TrackerRestartTest, ARestartOfTheDaemonEndsACheckByARowOfItsOwn)
{
    plug();
    ask();
    now += 2s;
    answer("m2");
    now += 98s;
    restart();
    ask();
    ASSERT_THAT(decisions, SizeIs(1));
    expect_cut_off(decisions[0]);
    EXPECT_EQ(decisions[0].requested_at, now - 100s);
    EXPECT_EQ(decisions[0].decided_at, now);
    ASSERT_THAT(decisions[0].answers, SizeIs(1));
    EXPECT_EQ(decisions[0].answers[0].took, 2s);
    EXPECT_THAT(decisions[0].silent, ElementsAre("m1", "m3"));
    EXPECT_TRUE(decisions[0].complete);
    EXPECT_EQ(decisions[0].card.name, "lc");
    EXPECT_EQ(shown().state, State::waiting);
    EXPECT_EQ(shown().requested_at, now);
    for (const char *module : {"m1", "m2", "m3"}) {
        answer(module);
    }
    end(true);
    ASSERT_THAT(decisions, SizeIs(2));
    EXPECT_EQ(decisions[1].outcome, Outcome::passed);
    EXPECT_EQ(decisions[1].decider, "m3");
    EXPECT_EQ(decisions[1].told_before, 0U);
    EXPECT_TRUE(decisions[1].complete);
}

TEST_F(TrackerRestartTest, ACheckThatWasDecidedIsNotCutOff)
{
    plug();
    ask();
    answer("m1", 1, "no");
    result(false, by_answer("m1")); // and the daemon ends before it deletes the request
    restart();
    ask();
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::denied));
    EXPECT_EQ(shown().state, State::waiting);
}

TEST_F(TrackerRestartTest, ARequestThatSomebodyElseWritesAgainIsTheSame)
{
    plug();
    ask();
    now += 10s;
    answer("m1");
    plug(); // its information is written again
    tracker.request_written(slot3, other());
    EXPECT_THAT(decisions, IsEmpty());
    EXPECT_EQ(shown().requested_at, now - 10s);
    EXPECT_THAT(shown().waiting_for, ElementsAre("m2", "m3"));
    now += 290s; // the timer of the first request runs on
    time_out();
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::silence));
    EXPECT_TRUE(decisions[0].complete);
}

TEST_F(TrackerRestartTest, ARequestByHandIsACheckThatNobodyCutsOff)
{
    plug();
    tracker.request_written(slot3, other());
    EXPECT_EQ(shown().state, State::waiting);
    answer("m1", 1, "no");
    end(false);
    ASSERT_THAT(outcomes(), ElementsAre(Outcome::denied));
    EXPECT_EQ(decisions[0].decider, "m1");
    EXPECT_FALSE(decisions[0].complete);
}

TEST_F(TrackerRestartTest, ACardThatLeftAndCameBackUnderALivingDaemonWasWithdrawn)
{
    plug();
    ask();
    unplug();
    plug();
    ask(); // the daemon could not delete the first one
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::withdrawn);
    EXPECT_FALSE(was_cut_off(decisions[0]));
    EXPECT_THAT(decisions[0].silent, IsEmpty());
}

TEST_F(TrackerRestartTest, ACardThatCameBackWhileTheDaemonWasAwayIsAskedByAll)
{
    plug();
    ask();
    for (const char *module : {"m1", "m2"}) {
        answer(module);
    }
    unplug();
    plug();
    restart();
    ask();
    ASSERT_THAT(decisions, SizeIs(1));
    expect_cut_off(decisions[0]);
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m2", "m3"));
}

TEST_F(TrackerRestartTest, ADecidedCardThatCameBackWhileTheDaemonWasAwayIsAskedByAll)
{
    plug();
    ask();
    for (const char *module : {"m1", "m2", "m3"}) {
        answer(module);
    }
    end(true);
    unplug();
    plug();
    restart();
    ask();
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::passed));
    answer("m1");
    EXPECT_THAT(shown().waiting_for, ElementsAre("m2", "m3"));
}

TEST_F(TrackerRestartTest, ACheckThatStoodBeforeAnybodyListenedIsCutOffToo)
{
    plug(true);
    ask(true);
    tracker.snapshot_done(now);
    restart();
    ask();
    ASSERT_THAT(decisions, SizeIs(1));
    expect_cut_off(decisions[0]);
    EXPECT_FALSE(decisions[0].complete);
    EXPECT_EQ(decisions[0].requested_at, std::nullopt);
}

TEST_F(TrackerRestartTest, WhatTheNextDaemonDoesFirstCutsOffTheOtherCardsToo)
{
    const Position slot4{1, 4, 0};
    CardFacts fourth = card(true);
    fourth.position = slot4;
    fourth.tipc_nodeid = 1260;
    plug();
    ask();
    tracker.card_written(fourth, other());
    tracker.request_written(slot4, daemon(by_card(slot4)));
    restart();
    tracker.request_written(slot4, daemon(by_card(slot4)));
    ASSERT_THAT(decisions, SizeIs(2));
    expect_cut_off(decisions[0]);
    expect_cut_off(decisions[1]);
    EXPECT_FALSE(shown().open);
    EXPECT_TRUE(tracker.find(slot4)->open);
}

TEST_F(TrackerRestartTest, ACardThatWentWhileNoDaemonWasThereWasWithdrawn)
{
    const Position slot4{1, 4, 0};
    const std::array<std::function<void()>, 3> ways{[this] { unplug(); },
                                                    [this] { tracker.card_deleted(slot3, other()); },
                                                    [this] {
                                                        CardFacts another = card(true);
                                                        another.name = "other";
                                                        tracker.card_written(another, other());
                                                    }};
    for (const auto &go : ways) {
        decisions.clear();
        plug();
        ask();
        go(); // and its request stays
        restart();
        tracker.request_written(slot4, daemon(by_card(slot4)));
        ASSERT_THAT(outcomes(), ElementsAre(Outcome::withdrawn));
        EXPECT_FALSE(was_cut_off(decisions[0]));
        EXPECT_EQ(decisions[0].reason, "");
        EXPECT_THAT(decisions[0].silent, IsEmpty());
        tracker.card_deleted(slot4, other());
        tracker.request_deleted(slot4, daemon(by_card(slot4)));
    }
}

TEST_F(TrackerRestartTest, TheRowIsAboutTheCardThatWasAskedFor)
{
    plug();
    ask();
    tracker.card_deleted(slot3, other());
    CardFacts another = card(true);
    another.name = "other";
    tracker.card_written(another, other());
    restart();
    ask();
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].card.name, "lc");
    EXPECT_EQ(shown().card.name, "other");
}

TEST_F(TrackerRestartTest, ARestartWhileNobodyListenedIsNotInvented)
{
    tracker.take_up({card(true), now - 10s, {"m2"}, {{"m1", 0, "", now - 5s}}, false, ask_unheard()}, now);
    plug(true);
    restart();
    ask(true);
    tracker.snapshot_done(now);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(decisions[0].requested_at, now - 10s);
    EXPECT_THAT(decisions[0].answers, SizeIs(1));
    EXPECT_EQ(shown().state, State::waiting);
    EXPECT_EQ(shown().requested_at, std::nullopt);
    EXPECT_THAT(shown().answers, IsEmpty());
}

TEST_F(TrackerRestartTest, AnOutageThatTheDaemonDidNotSurviveEndsItsChecksUnseen)
{
    plug();
    ask();
    answer("m1");
    restart();
    ask(true);
    tracker.snapshot_done(now);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::unseen));
    EXPECT_EQ(shown().state, State::waiting);
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m2", "m3"));
}

TEST_F(TrackerRestartTest, AnAnswerThatStillStandsAfterAnOutageIsHeardOnce)
{
    plug();
    ask();
    write_answer("m1", 0, "fine");
    const Change again{now, true, {3, {"other", 1, {Cause::Kind::none}}}};
    plug(true);
    find_request();
    tracker.answer_written(slot3, {"m1", 0, "fine"}, again);
    write_answer("m2", 0, "", true);
    tracker.snapshot_done(now);
    EXPECT_THAT(shown().answers, SizeIs(2));
    read_answer("m1");
    read_answer("m2");
    EXPECT_THAT(shown().answers, SizeIs(2));
    EXPECT_THAT(shown().waiting_for, ElementsAre("m3"));
    time_out();
    EXPECT_FALSE(decisions.at(0).complete);
}

TEST_F(TrackerRestartTest, ARequestThatIsGoneAndAnotherOneIsThereIsAnotherCheck)
{
    plug();
    ask();
    answer("m1");
    tracker.request_deleted(slot3, other(true));
    ask(true);
    tracker.snapshot_done(now);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(decisions[0].admitted, std::nullopt);
    EXPECT_EQ(shown().state, State::waiting);
    EXPECT_THAT(shown().answers, IsEmpty());
}

TEST_F(TrackerRestartTest, AClockThatIsSetBackMakesNoTimeBelowNothing)
{
    plug();
    ask();
    answer("m1");
    now -= 3600s;
    EXPECT_EQ(tracker.time_left(shown(), now), 300s);
    answer("m2");
    EXPECT_EQ(shown().answers.back().took, std::nullopt);
    now += 295s;
    time_out();
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::silence);
    EXPECT_THAT(decisions[0].silent, ElementsAre("m3"));
    EXPECT_EQ(duration_of(decisions[0]), std::nullopt);
}

} // namespace
