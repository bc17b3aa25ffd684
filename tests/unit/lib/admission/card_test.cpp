// Decisions that only their causes tell: what a list of answers and a clock would get wrong.
#include "tracker_fixture.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class CardTest : public CardTrackerTest
{
};

TEST_F(CardTest, AnAnswerThatStoodWhenTheDaemonWasStartedCounts)
{
    tracker.set_modules({"a", "b"});
    plug();
    ask();
    now += 5s;
    write_answer("b"); // while the daemon is away
    now += 5s;
    restart();
    ask();
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_THAT(shown().answers, SizeIs(1)) << "it stands";
    read_answer("b");
    EXPECT_THAT(shown().waiting_for, ElementsAre("a"));
    answer("a");
    end(true);
    answer("b");
    ASSERT_THAT(decisions, SizeIs(2));
    EXPECT_EQ(decisions[1].decider, "a");
    EXPECT_THAT(decisions[1].silent, IsEmpty());
    ASSERT_THAT(decisions[1].answers, SizeIs(2));
    EXPECT_EQ(decisions[1].answers[0].took, 5s);
    EXPECT_EQ(decisions[1].told_before, 1U) << "with the check that was cut off";
    EXPECT_TRUE(decisions[1].complete);
}

TEST_F(CardTest, AnAnswerThatNobodyHeardCountsWhenTheDaemonReadsIt)
{
    tracker.set_modules({"a", "b"});
    plug(true);
    ask(true);
    tracker.snapshot_done(now);
    tracker.answer_deleted(slot3, {"a", 1, "too hot"},
                           daemon({Cause::Kind::record, 70, "p_libpub.app_cg_card_check_ack:1:3:0:a"}));
    result(false, {Cause::Kind::record, 70, "p_libpub.app_cg_card_check_ack:1:3:0:a"});
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::denied);
    EXPECT_EQ(decisions[0].decider, "a");
    EXPECT_EQ(decisions[0].reason, "too hot");
    EXPECT_THAT(decisions[0].answers, SizeIs(1));
}

TEST_F(CardTest, AnAnswerThatIsDeletedUnreadCountsForNobody)
{
    plug();
    ask();
    write_answer("m1");
    tracker.answer_deleted(slot3, {"m1"}, daemon(by_card())); // its card goes
    EXPECT_THAT(shown().waiting_for, ElementsAre("m2", "m3")) << "who has answered is not waited for";
    restart();
    ask();
    EXPECT_THAT(shown().answers, IsEmpty());
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m2", "m3"));
}

TEST_F(CardTest, APassBeforeTheDaemonReadsADenialIsNotItsReason)
{
    plug();
    ask();
    write_answer("m1", 1, "too hot");
    const Cause denial = by_answer("m1");
    write_answer("m1", 0, "cooled down"); // in its place
    tracker.answer_deleted(slot3, {"m1", 0, "cooled down"}, daemon(denial));
    EXPECT_THAT(shown().waiting_for, ElementsAre("m2", "m3"));
    result(false, denial);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].decider, "m1");
    EXPECT_EQ(decisions[0].reason, "too hot");
}

TEST_F(CardTest, APassAfterAWithdrawalAndARestartOfTheListenerIsAPass)
{
    CardTracker late([this](const Decision &decision) { decisions.push_back(decision); });
    late.set_modules({"m1"});
    late.card_written(card(true), other(true));
    late.snapshot_done(now);
    write_answer("m1");
    late.result_written(1259, true, line_card, daemon(by_answer("m1")));
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::passed);
    EXPECT_EQ(decisions[0].decider, "m1");
    EXPECT_FALSE(decisions[0].complete);
}

TEST_F(CardTest, ACardThatALateAnswerPassedOfflineIsAdmittedByTheTimeAfterwards)
{
    tracker.set_modules({"a"});
    plug();
    ask();
    go_offline();
    answer("a");
    result(true, by_answer("a"));
    EXPECT_EQ(shown().state, State::offline);
    plug();
    EXPECT_EQ(shown().state, State::passed);
    ask();
    EXPECT_EQ(shown().state, State::waiting);
    now += 300s;
    time_out();
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::withdrawn, Outcome::passed, Outcome::silence));
    EXPECT_EQ(decisions[2].decider, "");
    EXPECT_EQ(shown().state, State::silence);
    EXPECT_EQ(shown().decider, "");
}

TEST_F(CardTest, WhereNoModuleIsLeftAWaitingCardIsAdmittedForThat)
{
    tracker.set_modules({"power"});
    plug();
    ask();
    now += 286s;
    restart();
    tracker.on_daemon([this](const std::string &, bool) { tracker.set_modules({}); });
    result(true, by_card());
    ASSERT_THAT(decisions, SizeIs(2));
    EXPECT_TRUE(was_cut_off(decisions[0]));
    EXPECT_THAT(decisions[0].silent, ElementsAre("power"));
    EXPECT_EQ(decisions[1].outcome, Outcome::unasked);
    EXPECT_EQ(decisions[1].requested_at, std::nullopt);
    EXPECT_THAT(decisions[1].silent, IsEmpty());
    EXPECT_EQ(shown().state, State::unasked);
    EXPECT_TRUE(shown().request) << "it stands for ever, and nobody waits";
    EXPECT_FALSE(shown().open);
    EXPECT_EQ(tracker.time_left(shown(), now), std::nullopt);
}

TEST_F(CardTest, ADaemonWithoutModulesIsKnownByWhatItAdmittedInAnOutage)
{
    tracker.set_modules({"power"});
    plug();
    ask();
    restart();
    tracker.set_modules({});
    tracker.result_written(1259, true, line_card, daemon(by_card(), true));
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::withdrawn, Outcome::unasked));
    EXPECT_TRUE(was_cut_off(decisions[0]));
    EXPECT_EQ(shown().state, State::unasked);
}

TEST_F(CardTest, WhenACheckEndedThatIsGoneAfterAnOutageIsNotKnown)
{
    plug();
    ask();
    tracker.request_deleted(slot3, daemon(by_card(), true));
    EXPECT_EQ(shown().state, State::waiting);
    now += 60s;
    tracker.snapshot_done(now);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::unseen));
    EXPECT_EQ(shown().state, State::undecided);
    EXPECT_EQ(shown().since, std::nullopt);
}

TEST_F(CardTest, OfTwoCardsWithOneTipcNodeATimerAdmitsTheOneThatWaits)
{
    constexpr Position slot4{1, 4, 0};
    plug();
    CardFacts other_card = card(true);
    other_card.position = slot4;
    tracker.card_written(other_card, other());
    tracker.request_written(slot4, daemon(by_card(slot4)));
    result(true, by_timer());
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].card.position, slot4);
    EXPECT_EQ(shown().state, State::undecided);
}

TEST_F(CardTest, WhereNoModuleIsLeftADeniedCardIsAdmittedToo)
{
    tracker.set_modules({"power"});
    plug();
    ask();
    answer("power", 1, "no");
    end(false);
    restart();
    result(true, by_card());
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::denied, Outcome::unasked));
    EXPECT_EQ(shown().state, State::unasked);
    EXPECT_FALSE(shown().denied);
}

TEST_F(CardTest, ADaemonThatLivesAndLosesItsModulesAsksNobodyAnyMore)
{
    plug();
    ask();
    result(true, by_card());
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::withdrawn, Outcome::unasked));
    EXPECT_FALSE(was_cut_off(decisions[0]));
}

TEST_F(CardTest, AfterAPassAnyModulesPassWillDoAlsoWhereAnAnswerWasNotHeard)
{
    tracker.set_modules({"m1", "m2"});
    plug(true);
    ask(true); // and m1 has answered
    tracker.snapshot_done(now);
    answer("m2");
    end(true);
    go_offline();
    plug();
    ask();
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m2"));
    EXPECT_TRUE(shown().any_will_do);
    answer("m2");
    end(true);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::passed, Outcome::passed));
    EXPECT_TRUE(decisions[1].complete);
}

TEST_F(CardTest, SoItIsOfACardWhoseAdmissionByTheLivingDaemonWasFound)
{
    plug(true);
    write_answer("m2", 0, "", true);
    tracker.result_written(1259, true, line_card, daemon(by_answer("m2"), true));
    tracker.snapshot_done(now);
    go_offline();
    plug();
    ask();
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m3"));
    EXPECT_TRUE(shown().any_will_do);
}

TEST_F(CardTest, TheNextDaemonAsksAllWhomeverTheOneBeforeAdmitted)
{
    plug(true);
    tracker.result_written(1259, true, line_card, daemon(by_timer(), true));
    tracker.snapshot_done(now);
    restart();
    ask();
    EXPECT_FALSE(shown().any_will_do);
    tracker.remember_list(slot3, {"m2"}, false);
    EXPECT_THAT(shown().waiting_for, ElementsAre("m2"));
}

TEST_F(CardTest, ARequestThatIsFoundBesideANewerResultIsNotWaitedFor)
{
    const Change asked = daemon(by_card(), true);
    const Change decided = daemon(by_timer(), true);
    plug(true);
    tracker.request_written(slot3, asked);
    tracker.result_written(1259, true, line_card, decided);
    tracker.snapshot_done(now);
    EXPECT_EQ(shown().state, State::silence);
    EXPECT_TRUE(shown().request);
    EXPECT_THAT(decisions, IsEmpty());
}

TEST_F(CardTest, ARequestThatIsFoundBesideAnOlderResultIs)
{
    const Change decided = daemon(by_timer(), true);
    plug(true);
    ask(true);
    tracker.result_written(1259, true, line_card, decided);
    tracker.snapshot_done(now);
    EXPECT_EQ(shown().state, State::waiting);
}

TEST_F(CardTest, AnAdmissionByADaemonWithoutModulesOutranksAnEarlierOnesRequest)
{
    tracker.set_modules({});
    plug(true);
    ask(true);
    restart();
    tracker.result_written(1259, true, line_card, daemon(by_card(), true));
    tracker.snapshot_done(now);
    EXPECT_EQ(shown().state, State::unasked);
}

TEST_F(CardTest, AnAdmissionForNewerInformationOfTheCardDoesSoToo)
{
    plug(true);
    ask(true);
    restart();
    Cause newer = by_card();
    ++newer.revision;
    tracker.result_written(1259, true, line_card, daemon(newer, true));
    EXPECT_EQ(shown().state, State::unasked);
}

TEST_F(CardTest, ADaemonWithModulesHasAskedAgain)
{
    const Change admitted = daemon(by_card(), true);
    restart();
    plug(true);
    ask(true);
    tracker.result_written(1259, true, line_card, admitted);
    EXPECT_EQ(shown().state, State::waiting);
}

TEST_F(CardTest, OfAnEarlierBuildItIsNotKnownWhoDecided)
{
    plug();
    tracker.request_written(slot3, unknown());
    EXPECT_EQ(shown().state, State::waiting);
    write_answer("m1");
    tracker.answer_deleted(slot3, {"m1"}, unknown());
    EXPECT_THAT(shown().waiting_for, ElementsAre("m2", "m3"));
    tracker.result_written(1259, true, line_card, unknown());
    tracker.request_deleted(slot3, unknown());
    ASSERT_THAT(outcomes(), ElementsAre(Outcome::unseen));
    EXPECT_EQ(decisions[0].admitted, true);
    EXPECT_EQ(decisions[0].decider, "");
    EXPECT_FALSE(decisions[0].complete);
    EXPECT_EQ(shown().state, State::passed);
    EXPECT_EQ(shown().decider, "");
    tracker.request_written(slot3, unknown());
    tracker.request_written(slot3, unknown());
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::unseen, Outcome::unseen));
    tracker.result_written(1259, false, line_card, unknown());
    EXPECT_EQ(shown().state, State::denied);
    EXPECT_EQ(decisions.back().reason, "");
}

TEST_F(CardTest, ACheckWhoseRequestTheDaemonDeletesWithoutAResultWasDecidedUnseen)
{
    plug();
    ask();
    tracker.request_deleted(slot3, daemon(by_timer())); // the store refused the result
    ask();
    answer("m1", 1);
    tracker.request_deleted(slot3, daemon(by_answer("m1")));
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::unseen, Outcome::unseen));
    EXPECT_FALSE(decisions[0].complete);
}

TEST_F(CardTest, AResultOfAnotherPositionIsNotThisCardsWhateverItsId)
{
    plug();
    result(true, by_card({1, 7, 0}));
    EXPECT_EQ(shown().state, State::undecided);
    plug();
    EXPECT_EQ(shown().state, State::undecided);
    EXPECT_THAT(decisions, IsEmpty());
}

TEST_F(CardTest, WhatIsFoundTellsDeciderAndTimeOutWithoutAnyMemory)
{
    plug(true);
    write_answer("m2", 1, "", true);
    tracker.result_written(1259, false, line_card, daemon(by_answer("m2"), true));
    tracker.snapshot_done(now);
    EXPECT_EQ(shown().state, State::denied);
    EXPECT_EQ(shown().decider, "m2");
    EXPECT_EQ(shown().last, std::nullopt);
    EXPECT_FALSE(shown().explained);
    EXPECT_THAT(decisions, IsEmpty());
}

} // namespace
