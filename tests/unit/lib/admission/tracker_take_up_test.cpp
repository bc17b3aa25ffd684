// Memory that comes late: what was heard meanwhile goes before it.
#include "tracker_fixture.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class TrackerTakeUpTest : public CardTrackerTest
{
protected:
    [[nodiscard]] OpenCheck remembered(std::chrono::seconds age = 20s) const
    {
        return {card(true), now - age, {"m2", "m3"}, {{"m1", 0, "", now - age + 1s}}};
    }
    void find_standing()
    {
        plug(true);
        ask(true);
        tracker.snapshot_done(now);
    }
};

TEST_F(TrackerTakeUpTest, ARequestThatWasFoundStandingIsJoined)
{
    find_standing();
    const OpenCheck check = remembered();
    now += 5s;
    answer("m2");
    tracker.take_up(check, false, now);
    EXPECT_THAT(decisions, IsEmpty());
    EXPECT_EQ(shown().requested_at, check.requested_at);
    EXPECT_THAT(shown().waiting_for, ElementsAre("m3"));
    ASSERT_THAT(shown().answers, SizeIs(2));
    EXPECT_EQ(shown().answers[0].module, "m1");
    answer("m3");
    end(true);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].decider, "m3");
    EXPECT_EQ(duration_of(decisions[0]), 25s);
    EXPECT_FALSE(decisions[0].complete);
}

TEST_F(TrackerTakeUpTest, BeforeAnythingIsToldItIsWaitedForTheRecords)
{
    tracker.take_up(remembered(), false, now);
    EXPECT_THAT(decisions, IsEmpty());
    plug(true);
    ask(true);
    tracker.snapshot_done(now);
    EXPECT_THAT(decisions, IsEmpty());
    EXPECT_THAT(shown().waiting_for, ElementsAre("m2", "m3"));
}

TEST_F(TrackerTakeUpTest, AnAnswerThatStoodAndIsRememberedIsHeardOnce)
{
    plug(true);
    ask(true);
    tracker.answered(slot3, {"m1", 0, "", now}, true);
    tracker.snapshot_done(now);
    tracker.take_up(remembered(), false, now);
    EXPECT_THAT(shown().answers, SizeIs(1));
}

TEST_F(TrackerTakeUpTest, WhatWasDecidedMeanwhileIsNotToldAgain)
{
    find_standing();
    answer("m2", 1, "no");
    end(false);
    ASSERT_THAT(decisions, SizeIs(1));
    tracker.take_up(remembered(), false, now);
    EXPECT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(shown().state, State::denied);
    EXPECT_EQ(shown().last->decider, "m2");
}

TEST_F(TrackerTakeUpTest, ACheckThatWasNotThereWhenListeningBeganEndedUnseen)
{
    plug(true);
    tracker.result_written(1259, true, now, true);
    tracker.snapshot_done(now);
    const Time began = now;
    now += 60s;
    ask(); // a later check, of a daemon that was started afresh
    answer("m1");
    const OpenCheck check{card(true), began - 10s, {"m2"}, {}};
    tracker.take_up(check, false, now);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(decisions[0].requested_at, check.requested_at);
    EXPECT_EQ(decisions[0].decided_at, now);
    EXPECT_FALSE(decisions[0].complete);
    EXPECT_EQ(shown().state, State::waiting); // as it was heard
    EXPECT_EQ(shown().requested_at, now);
    EXPECT_THAT(shown().answers, SizeIs(1));
}

TEST_F(TrackerTakeUpTest, ACheckOfWhichNothingIsLeftEndedWhenListeningBegan)
{
    tracker.snapshot_done(now);
    const Time began = now;
    now += 60s;
    tracker.take_up({card(true), began - 10s, {"m2"}, {}}, false, now);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(decisions[0].decided_at, began);
    EXPECT_EQ(decisions[0].card.name, "lc");
}

TEST_F(TrackerTakeUpTest, OneThatIsTooOldOrOfAnotherCardOrDaemonIsNotTheOneFound)
{
    find_standing();
    tracker.take_up(remembered(400s), false, now);
    OpenCheck other = remembered();
    other.card.serial = "0b";
    tracker.take_up(other, false, now);
    tracker.take_up(remembered(), true, now);
    ASSERT_THAT(decisions, SizeIs(3));
    for (const Decision &decision : decisions) {
        EXPECT_EQ(decision.outcome, Outcome::unseen);
    }
    EXPECT_EQ(shown().requested_at, std::nullopt);
    ask(); // the request found may have been the old daemon's, of which it is told
    EXPECT_THAT(decisions, SizeIs(3));
}

TEST_F(TrackerTakeUpTest, ARememberedDecisionExplainsTheStateAndChangesNoneThatWasHeard)
{
    Decision before;
    before.card = card(true);
    before.outcome = Outcome::silence;
    before.admitted = true;
    before.decided_at = now - 500s;
    plug(true);
    tracker.result_written(1259, true, now, true);
    tracker.snapshot_done(now);
    EXPECT_EQ(shown().state, State::passed);
    tracker.remember_decision(before);
    EXPECT_EQ(shown().state, State::silence);
    EXPECT_EQ(shown().since, now - 500s);
    ask();
    answer("m1", 1, "no");
    end(false);
    tracker.remember_decision(before);
    EXPECT_EQ(shown().state, State::denied);
    EXPECT_EQ(shown().last->decider, "m1");
}

TEST_F(TrackerTakeUpTest, AnEndThatIsHeardOfCutsOffWhateverRequestIsLeft)
{
    tracker.set_daemon_watched(true);
    tracker.take_up(remembered(), true, now);
    find_standing();
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    now += 50s;
    answer("m1");
    tracker.daemon_ended();
    now += 2s;
    ask();
    ASSERT_THAT(decisions, SizeIs(2));
    EXPECT_TRUE(was_cut_off(decisions[1]));
    EXPECT_THAT(decisions[1].answers, SizeIs(1));
}

TEST_F(TrackerTakeUpTest, AnEndThatIsHeardOfBeforeTheMemoryComesDoesSo)
{
    tracker.set_daemon_watched(true);
    const OpenCheck check = remembered();
    find_standing();
    now += 50s;
    tracker.daemon_ended();
    tracker.take_up(check, true, now);
    now += 2s;
    ask();
    ASSERT_THAT(decisions, SizeIs(2));
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_TRUE(was_cut_off(decisions[1]));
}

TEST_F(TrackerTakeUpTest, WhatWasDecidedIsNotOpenWhileItsRequestStands)
{
    plug();
    EXPECT_FALSE(shown().open);
    ask();
    EXPECT_TRUE(shown().open);
    tracker.result_written(1259, false, now, false);
    EXPECT_FALSE(shown().open);
    EXPECT_TRUE(shown().request);
    tracker.request_deleted(slot3, now, false);
    ask();
    EXPECT_TRUE(shown().open);
}

} // namespace
