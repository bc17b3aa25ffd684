// Checks that a restart of the daemon cuts off, and what only looks like it.
#include "tracker_fixture.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class TrackerRestartTest : public CardTrackerTest
{
protected:
    [[nodiscard]] std::vector<Outcome> outcomes() const
    {
        std::vector<Outcome> all;
        for (const Decision &decision : decisions) {
            all.push_back(decision.outcome);
        }
        return all;
    }
    void expect_cut_off(const Decision &decision)
    {
        EXPECT_EQ(decision.outcome, Outcome::withdrawn);
        EXPECT_EQ(decision.reason, started_afresh);
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
    ask(); // by its successor
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
}

TEST_F(TrackerRestartTest, ACheckThatWasDecidedIsNotCutOff)
{
    plug();
    ask();
    answer("m1", 1, "no");
    tracker.result_written(1259, false, now, false); // and the daemon ends before it deletes the request
    tracker.daemon_ended();
    ask();
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::denied));
}

TEST_F(TrackerRestartTest, ARequestThatIsWrittenAgainUnderALivingDaemonIsTheSame)
{
    tracker.set_daemon_watched(true);
    plug();
    ask();
    now += 10s;
    answer("m1");
    plug(); // its information is written again
    ask();
    EXPECT_THAT(decisions, IsEmpty());
    EXPECT_EQ(shown().requested_at, now - 10s);
    EXPECT_THAT(shown().waiting_for, ElementsAre("m2", "m3"));
    now += 290s; // the timer of the first request runs on
    end(true);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::silence));
    EXPECT_TRUE(decisions[0].complete);
}

TEST_F(TrackerRestartTest, TheDaemonsEndTellsTheTwoApart)
{
    tracker.set_daemon_watched(true);
    plug();
    ask();
    tracker.daemon_ended();
    EXPECT_THAT(decisions, IsEmpty()); // its successor is still to come
    now += 3s;
    ask();
    ASSERT_THAT(decisions, SizeIs(1));
    expect_cut_off(decisions[0]);
    ask();
    EXPECT_THAT(decisions, SizeIs(1)); // by the same one now
}

TEST_F(TrackerRestartTest, ACardThatLeftAndCameBackUnderALivingDaemonWasWithdrawn)
{
    tracker.set_daemon_watched(true);
    plug();
    ask();
    tracker.card_written(card(false), now, false);
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
    tracker.card_written(card(false), now, false);
    plug();
    ask(); // nobody deleted the first one, so nobody was there
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
    tracker.daemon_ended();
    tracker.card_written(card(false), now, false);
    plug();
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
    ask();
    ASSERT_THAT(decisions, SizeIs(1));
    expect_cut_off(decisions[0]);
    EXPECT_FALSE(decisions[0].complete);
    EXPECT_EQ(decisions[0].requested_at, std::nullopt);
}

TEST_F(TrackerRestartTest, TheRowIsAboutTheCardThatWasAskedFor)
{
    plug();
    ask();
    tracker.card_deleted(slot3, now);
    CardFacts other = card(true);
    other.name = "other";
    tracker.card_written(other, now, false);
    tracker.request_written(slot3, now, false);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].card.name, "lc");
    EXPECT_EQ(shown().card.name, "other");
}

TEST_F(TrackerRestartTest, ARestartWhileNobodyListenedIsNotInvented)
{
    tracker.take_up({card(true), now - 10s, {"m2"}, {{"m1", 0, "", now - 5s}}}, true, now);
    plug(true);
    ask(true); // whose request that is nobody knows
    tracker.snapshot_done(now);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(decisions[0].requested_at, now - 10s);
    EXPECT_THAT(decisions[0].answers, SizeIs(1));
    EXPECT_EQ(shown().requested_at, std::nullopt);
    ask(); // the old daemon's it was
    EXPECT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(shown().requested_at, now);
}

TEST_F(TrackerRestartTest, AnOutageThatTheDaemonDidNotSurviveEndsItsChecksUnseen)
{
    tracker.set_daemon_watched(true);
    plug();
    ask();
    tracker.daemon_ended();
    plug(true);
    ask(true);
    tracker.snapshot_done(now);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::unseen));
    EXPECT_EQ(shown().state, State::waiting);
}

TEST_F(TrackerRestartTest, AnotherCardsCheckIsNotGoneOnWithAfterAnOutage)
{
    plug();
    ask();
    answer("m1");
    CardFacts other = card(true);
    other.serial = "0b";
    tracker.card_written(other, now, true);
    ask(true);
    tracker.snapshot_done(now);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(decisions[0].card.serial, "0a");
    EXPECT_THAT(shown().answers, IsEmpty());
}

TEST_F(TrackerRestartTest, AnAnswerThatStillStandsAfterAnOutageIsHeardOnce)
{
    plug();
    ask();
    answer("m1", 0, "fine");
    plug(true);
    ask(true);
    tracker.answered(slot3, {"m1", 0, "fine", now}, true);
    tracker.answered(slot3, {"m2", 0, "", now}, true);
    tracker.snapshot_done(now);
    EXPECT_THAT(shown().answers, SizeIs(2));
    EXPECT_THAT(shown().waiting_for, ElementsAre("m3"));
}

TEST_F(TrackerRestartTest, ARequestThatIsGoneAndThereAgainIsAnotherOne)
{
    plug();
    ask();
    answer("m1");
    tracker.request_deleted(slot3, now, true);
    ask(true);
    tracker.result_written(1259, true, now, true);
    tracker.snapshot_done(now);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(decisions[0].admitted, std::nullopt); // the result may be of before
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
    EXPECT_EQ(tracker.time_to_answer(shown(), now), std::nullopt);
    now += 295s;
    end(true); // by the time
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::silence);
    EXPECT_THAT(decisions[0].silent, ElementsAre("m3"));
    EXPECT_EQ(duration_of(decisions[0]), std::nullopt);
}

TEST_F(TrackerRestartTest, ALastPassBeforeAClockIsSetBackDoesNotPassForTheOthers)
{
    plug();
    ask();
    now += 200s;
    answer("m1");
    now -= 60s;
    end(true);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::silence));
    EXPECT_EQ(duration_of(decisions[0]), 140s);
}

TEST_F(TrackerRestartTest, AStartWithoutAnEndCutsOffAtTheRequestThatCameBeforeIt)
{
    tracker.set_daemon_watched(true);
    plug();
    ask();
    const Time first = now;
    now += 10s;
    answer("m1");
    now += 40s;
    ask(); // by the next daemon, whose start is noted a little later
    const Time second = now;
    answer("m2");
    now += 1s;
    tracker.daemon_started_again(now);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_TRUE(was_cut_off(decisions[0]));
    EXPECT_EQ(decisions[0].requested_at, first);
    EXPECT_EQ(decisions[0].decided_at, second);
    EXPECT_THAT(decisions[0].silent, ElementsAre("m2", "m3"));
    EXPECT_THAT(decisions[0].answers, SizeIs(1));
    EXPECT_EQ(shown().requested_at, second);
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m3"));
    ASSERT_THAT(shown().answers, SizeIs(1));
    EXPECT_EQ(shown().answers[0].took, 0ms);
    now += 10s;
    answer("m1");
    answer("m3");
    end(true);
    ASSERT_THAT(decisions, SizeIs(2));
    EXPECT_EQ(decisions[1].outcome, Outcome::passed);
    EXPECT_EQ(duration_of(decisions[1]), 11s);
}

TEST_F(TrackerRestartTest, AStartWithoutAnEndEndsWhatWasAskedLongBefore)
{
    tracker.set_daemon_watched(true);
    plug();
    ask();
    now += 10s;
    ask(); // by the same daemon
    now += 20s;
    tracker.daemon_started_again(now);
    EXPECT_THAT(decisions, IsEmpty());
    now += 1s;
    ask();
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_TRUE(was_cut_off(decisions[0]));
    EXPECT_EQ(decisions[0].decided_at, now);
}

} // namespace
