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
    TrackerTakeUpTest() : asked_(ask_unheard()) {}

    [[nodiscard]] OpenCheck remembered(std::chrono::seconds age = 20s) const
    {
        return {card(true), now - age, {"m2", "m3"}, {{"m1", 0, "", now - age + 1s}}, false, asked_};
    }
    void find_standing()
    {
        plug(true);
        find_request();
        tracker.snapshot_done(now);
    }

private:
    Write asked_;
};

TEST_F(TrackerTakeUpTest, ARequestThatWasFoundStandingIsJoined)
{
    find_standing();
    const OpenCheck check = remembered();
    now += 5s;
    answer("m2");
    tracker.take_up(check, now);
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
    tracker.take_up(remembered(), now);
    EXPECT_THAT(decisions, IsEmpty());
    find_standing();
    EXPECT_THAT(decisions, IsEmpty());
    EXPECT_THAT(shown().waiting_for, ElementsAre("m2", "m3"));
}

TEST_F(TrackerTakeUpTest, AnAnswerThatStoodAndIsRememberedIsHeardOnce)
{
    plug(true);
    find_request();
    write_answer("m1", 0, "", true);
    tracker.snapshot_done(now);
    tracker.take_up(remembered(), now);
    EXPECT_THAT(shown().answers, SizeIs(1));
}

TEST_F(TrackerTakeUpTest, WhatWasDecidedMeanwhileIsNotToldAgain)
{
    find_standing();
    answer("m2", 1, "no");
    end(false);
    ASSERT_THAT(decisions, SizeIs(1));
    tracker.take_up(remembered(), now);
    EXPECT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(shown().state, State::denied);
    EXPECT_EQ(shown().last->decider, "m2");
}

TEST_F(TrackerTakeUpTest, ACheckInWhosePlaceAnotherWasHeardOfEndedUnseen)
{
    const OpenCheck check = remembered();
    plug(true);
    tracker.result_written(1259, true, line_card, unknown(true));
    tracker.snapshot_done(now);
    const Time began = now;
    now += 60s;
    restart();
    ask();
    write_answer("m1");
    tracker.take_up(check, now);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(decisions[0].requested_at, check.requested_at);
    EXPECT_EQ(decisions[0].decided_at, began);
    EXPECT_FALSE(decisions[0].complete);
    EXPECT_EQ(shown().state, State::waiting); // as it was heard
    EXPECT_EQ(shown().requested_at, now);
    EXPECT_THAT(shown().answers, SizeIs(1));
}

TEST_F(TrackerTakeUpTest, ACheckThatWasDecidedWhileNobodyListenedEndedAsTheResultThatWasFoundSays)
{
    const OpenCheck check = remembered();
    plug(true);
    write_answer("m3", 0, "", true);
    tracker.result_written(1259, true, line_card, daemon(by_answer("m3"), true));
    tracker.snapshot_done(now);
    EXPECT_THAT(decisions, IsEmpty());
    now += 60s;
    tracker.take_up(check, now);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::passed);
    EXPECT_EQ(decisions[0].decider, "m3");
    EXPECT_EQ(decisions[0].requested_at, check.requested_at);
    EXPECT_THAT(decisions[0].answers, SizeIs(2));
    EXPECT_FALSE(decisions[0].complete);
    EXPECT_EQ(shown().state, State::passed);
    EXPECT_TRUE(shown().explained);
}

TEST_F(TrackerTakeUpTest, ARememberedPassIsNotTheReasonOfADenialThatNobodyHeard)
{
    const OpenCheck check = remembered();
    write_answer("m1", 1, "hot"); // of which this tracker, without a card, and the late one hear nothing
    CardTracker late([this](const Decision &decision) { decisions.push_back(decision); });
    late.card_written(card(true), other(true));
    late.result_written(1259, false, line_card, daemon(by_answer("m1"), true));
    late.snapshot_done(now);
    late.take_up(check, now);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::denied);
    EXPECT_EQ(decisions[0].decider, "m1");
    EXPECT_EQ(decisions[0].reason, "");
    EXPECT_FALSE(decisions[0].complete);
}

TEST_F(TrackerTakeUpTest, SoDidOneWhoseRequestOutlivesItsResult)
{
    const OpenCheck check = remembered();
    plug(true);
    find_request();
    tracker.result_written(1259, true, line_card, daemon(by_timer(), true));
    tracker.snapshot_done(now);
    EXPECT_EQ(shown().state, State::silence);
    EXPECT_THAT(decisions, IsEmpty()) << "whose check that was nobody knew";
    tracker.take_up(check, now);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::silence);
    EXPECT_THAT(decisions[0].silent, ElementsAre("m2", "m3"));
    tracker.take_up(check, now);
    EXPECT_THAT(decisions, SizeIs(1));
}

TEST_F(TrackerTakeUpTest, ACheckOfWhichNothingIsLeftEndedWhenListeningBegan)
{
    tracker.snapshot_done(now);
    const Time began = now;
    now += 60s;
    tracker.take_up(remembered(70s), now);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::unseen);
    EXPECT_EQ(decisions[0].decided_at, began);
    EXPECT_EQ(decisions[0].card.name, "lc");
}

TEST_F(TrackerTakeUpTest, AnotherRequestIsNotTheOneFoundHoweverMuchTheyAreAlike)
{
    const OpenCheck check = remembered();
    ask_unheard();
    find_standing();
    tracker.take_up(check, now);
    OpenCheck of_unknown_writer = check;
    of_unknown_writer.request = {};
    tracker.take_up(of_unknown_writer, now);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::unseen, Outcome::unseen));
    EXPECT_EQ(shown().requested_at, std::nullopt);
    EXPECT_EQ(shown().state, State::waiting);
}

TEST_F(TrackerTakeUpTest, ACheckOfAnEarlierVersionsFileGoesOnWithARequestOfAnEarlierBuild)
{
    OpenCheck check = remembered();
    check.request = {};
    for (const bool early : {true, false}) {
        CardTracker next([this](const Decision &decision) { decisions.push_back(decision); });
        if (early) {
            next.take_up(check, now);
        }
        next.card_written(card(true), other(true));
        next.request_written(slot3, unknown(true));
        next.snapshot_done(now);
        if (!early) {
            next.take_up(check, now);
        }
        EXPECT_EQ(next.find(slot3)->requested_at, check.requested_at);
        EXPECT_THAT(next.find(slot3)->waiting_for, ElementsAre("m2", "m3"));
        EXPECT_THAT(next.find(slot3)->answers, SizeIs(1));
    }
    EXPECT_THAT(decisions, IsEmpty());
}

TEST_F(TrackerTakeUpTest, ButNotOfAnotherCardNorWithOneOfADaemonThatSaysWhoItIs)
{
    OpenCheck check = remembered();
    check.request = {};
    check.card.name = "another";
    tracker.take_up(check, now);
    plug(true);
    tracker.request_written(slot3, unknown(true));
    tracker.take_up(check, now);
    check.card.name = "lc";
    ask(true);
    tracker.take_up(check, now);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::unseen, Outcome::unseen, Outcome::unseen, Outcome::unseen));
    EXPECT_EQ(shown().requested_at, std::nullopt);
}

TEST_F(TrackerTakeUpTest, ADecisionThatWasHeardOfStaysTheLastOneWhenAnEarlierCheckComesToLight)
{
    const OpenCheck check = remembered();
    ask_unheard();
    find_standing();
    answer("m2", 1, "no");
    end(false);
    tracker.take_up(check, now);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::denied, Outcome::unseen));
    EXPECT_EQ(shown().last->outcome, Outcome::denied);
    EXPECT_TRUE(shown().explained);
}

TEST_F(TrackerTakeUpTest, ARememberedDecisionExplainsTheStateAndChangesNoneThatWasHeard)
{
    Decision before;
    before.card = card(true);
    before.outcome = Outcome::silence;
    before.admitted = true;
    before.decided_at = now - 500s;
    const Change written = daemon(by_timer(), true);
    before.result = written.write;
    plug(true);
    tracker.result_written(1259, true, line_card, written);
    tracker.snapshot_done(now);
    EXPECT_EQ(shown().state, State::silence);
    EXPECT_EQ(shown().since, std::nullopt);
    tracker.remember_decision(before);
    EXPECT_EQ(shown().since, now - 500s);
    ask();
    answer("m1", 1, "no");
    end(false);
    tracker.remember_decision(before);
    EXPECT_EQ(shown().state, State::denied);
    EXPECT_EQ(shown().last->decider, "m1");
}

TEST_F(TrackerTakeUpTest, TheNextDaemonCutsOffWhatGoesOn)
{
    tracker.take_up(remembered(), now);
    find_standing();
    now += 50s;
    answer("m2");
    restart();
    now += 2s;
    ask();
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_TRUE(was_cut_off(decisions[0]));
    EXPECT_THAT(decisions[0].answers, SizeIs(2));
    EXPECT_THAT(decisions[0].silent, ElementsAre("m3"));
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m2", "m3"));
}

TEST_F(TrackerTakeUpTest, ARequestThatIsRememberedAsEndedIsNotWaitedForWheneverThatIsRemembered)
{
    tracker.set_modules({"power"});
    plug();
    ask();
    restart();
    const Change admitted = daemon(by_card());
    tracker.result_written(1259, true, line_card, admitted);
    ASSERT_THAT(outcomes(), ElementsAre(Outcome::withdrawn, Outcome::unasked));
    for (const bool early : {true, false}) {
        CardTracker next([this](const Decision &decision) { decisions.push_back(decision); });
        next.set_modules({"power"}); // that were installed since, and this daemon does not know
        if (early) {
            next.remember_decision(decisions[1]);
        }
        next.card_written(card(true), other(true));
        next.request_written(slot3, {now, true, request()});
        next.result_written(1259, true, line_card, {now, true, admitted.write});
        next.snapshot_done(now);
        next.remember_decision(decisions[1]);
        EXPECT_EQ(next.find(slot3)->state, State::unasked);
        EXPECT_FALSE(next.find(slot3)->open);
    }
    EXPECT_THAT(decisions, SizeIs(2));
}

TEST_F(TrackerTakeUpTest, WhatWasDecidedIsNotOpenWhileItsRequestStands)
{
    plug();
    EXPECT_FALSE(shown().open);
    ask();
    EXPECT_TRUE(shown().open);
    answer("m1", 1);
    result(false, by_answer("m1"));
    EXPECT_FALSE(shown().open);
    EXPECT_TRUE(shown().request);
    EXPECT_EQ(tracker.time_left(shown(), now), std::nullopt);
    tracker.request_deleted(slot3, daemon(by_answer("m1")));
    ask();
    EXPECT_TRUE(shown().open);
}

} // namespace
