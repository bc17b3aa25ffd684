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
    answer("m1", 1, "first");
    answer("m2", 1, "second");
    end(false);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].decider, "m1");
    EXPECT_EQ(decisions[0].reason, "first");
    EXPECT_TRUE(decisions[0].complete);
    tracker.card_written(card(false), now, false);
    EXPECT_EQ(shown().state, State::offline);
    EXPECT_EQ(shown().last->decider, "m1");
}

TEST_F(TrackerOrderTest, AStrangersPassBehindTheLastOneDecidesNothing)
{
    plug();
    ask();
    for (const char *module : {"m1", "m2", "m3", "foreign"}) {
        answer(module);
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
    for (const char *module : {"m1", "m2", "m3"}) {
        answer(module);
    }
    answer("m1", 1, "oops");
    end(true);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::passed);
    EXPECT_EQ(decisions[0].decider, "m3");
    tracker.result_written(1259, false, now, false);
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
    answer("m2", 1, "late");
    answer("m3", 1, "later");
    end(true); // the timer was first
    tracker.result_written(1259, false, now, false);
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
    tracker.card_written(card(false), now, false);
    answer("m2", 1, "nor I");
    tracker.result_written(1259, false, now, false);
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
    end(true);
    ASSERT_EQ(decisions.size(), 1U);
    EXPECT_EQ(decisions[0].outcome, Outcome::silence);
    EXPECT_THAT(decisions[0].silent, ElementsAre("m2"));
    EXPECT_FALSE(decisions[0].complete);
}

TEST_F(TrackerOrderTest, TheSameHoldsOfOneThatTheDaemonToldOf)
{
    tracker.remember_open({{slot3}, std::nullopt, {"m1", "m2"}, {}});
    plug(true);
    ask(true);
    tracker.snapshot_done(now);
    answer("m1");
    now += 190s;
    end(true);
    EXPECT_EQ(decisions.at(0).outcome, Outcome::silence);
    EXPECT_THAT(decisions[0].silent, ElementsAre("m2"));
}

TEST_F(TrackerOrderTest, ACardThatWasThereBeforeIsAskedAgainByAFreshDaemonOnly)
{
    int told = 0;
    tracker.on_fresh_daemon([&] { ++told; });
    tracker.set_modules({"m1"});
    plug(true);
    tracker.result_written(1259, true, now, true);
    tracker.snapshot_done(now);
    now += 50s;
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
    tracker.remember_decision(before);
    plug(true);
    tracker.result_written(1259, true, now, true);
    tracker.snapshot_done(now);
    EXPECT_EQ(shown().state, State::passed);
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
    end(true);
    EXPECT_EQ(decisions.at(0).outcome, Outcome::silence);
    EXPECT_THAT(decisions[0].silent, ElementsAre("m1"));
}

TEST_F(TrackerOrderTest, AResultGoesToTheCardThatWaitsWhereTwoHaveOneId)
{
    CardFacts other = card(true);
    other.position = {1, 2, 0};
    tracker.card_written(other, now, false);
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

TEST_F(TrackerOrderTest, AnAnswerAfterTheDecisionIsToldOnceAndAtOnce)
{
    std::vector<std::string> late;
    tracker.on_late_answer([&](const Position &position, const Answer &told) {
        EXPECT_EQ(position, slot3);
        late.push_back(told.module);
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
    tracker.result_written(1259, true, now, false);
    EXPECT_THAT(late, ElementsAre("m2", "m3", "m1"));
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
    tracker.card_written(card(false), now, false);
    EXPECT_EQ(shown().state, State::offline);
    EXPECT_TRUE(shown().denied);
    tracker.result_deleted(1259, now);
    EXPECT_FALSE(shown().denied);
}

} // namespace
