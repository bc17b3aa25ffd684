// Cards followed by somebody who cannot tell which modules the daemon asks: nothing may be made up for that.
#include "tracker_fixture.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class TrackerModulesTest : public CardTrackerTest
{
protected:
    TrackerModulesTest() : CardTrackerTest(std::nullopt) {}
    // Two modules pass a card within two milliseconds.
    void pass_quickly()
    {
        plug();
        ask();
        now += 1ms;
        answer("m1");
        now += 1ms;
        answer("m2");
        end(true);
    }
    void expect_passed_by_m2()
    {
        ASSERT_THAT(decisions, SizeIs(1));
        EXPECT_EQ(decisions[0].outcome, Outcome::passed);
        EXPECT_EQ(decisions[0].decider, "m2");
        EXPECT_THAT(decisions[0].silent, IsEmpty());
        EXPECT_FALSE(decisions[0].complete);
        ASSERT_THAT(decisions[0].answers, SizeIs(2));
        EXPECT_TRUE(decisions[0].answers[0].registered);
        EXPECT_TRUE(decisions[0].answers[1].registered);
    }
};

TEST_F(TrackerModulesTest, OfUnknownModulesTheLastPassDecides)
{
    pass_quickly();
    expect_passed_by_m2();
    EXPECT_EQ(shown().state, State::passed);
    EXPECT_FALSE(tracker.knows_modules());
}

TEST_F(TrackerModulesTest, ARequestProvesThatSomebodyIsAsked)
{
    tracker.set_modules({});
    EXPECT_FALSE(tracker.is_module("m1"));
    pass_quickly();
    expect_passed_by_m2();
    EXPECT_TRUE(tracker.is_module("m1"));
}

TEST_F(TrackerModulesTest, WithoutARequestAnEmptyListIsBelieved)
{
    tracker.set_modules({});
    plug();
    write_answer("m1"); // that nobody reads
    result(true, by_card());
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::unasked);
    EXPECT_TRUE(tracker.knows_modules());
    EXPECT_FALSE(shown().answers.at(0).registered);
}

TEST_F(TrackerModulesTest, ALateResultIsNoSilenceBeforeTheTimeIsUp)
{
    plug();
    ask();
    answer("m1");
    now += 200s;
    end(true);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::passed);
    EXPECT_EQ(decisions[0].decider, "m1");
}

TEST_F(TrackerModulesTest, ATimeThatIsUpIsASilenceOfNobodyKnown)
{
    plug();
    ask();
    answer("m1");
    EXPECT_THAT(shown().waiting_for, IsEmpty());
    now += 300s;
    tracker.set_modules({"m1", "m2"}); // known too late for this check
    time_out();
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::silence);
    EXPECT_THAT(decisions[0].silent, IsEmpty());
    EXPECT_FALSE(decisions[0].complete);
}

TEST_F(TrackerModulesTest, ADenialAndItsEndAreToldByTheAnswers)
{
    plug();
    ask();
    answer("m1", -1, "too hot");
    end(false);
    now += 10s;
    answer("m1");
    now += 10s;
    result(true, by_answer("m1"));
    ASSERT_THAT(decisions, SizeIs(2));
    EXPECT_EQ(decisions[0].decider, "m1");
    EXPECT_EQ(decisions[0].reason, "too hot");
    EXPECT_EQ(decisions[1].outcome, Outcome::passed);
    EXPECT_EQ(decisions[1].decider, "m1");
}

TEST_F(TrackerModulesTest, ACardThatWasNotAskedYetHasTheListOnceItIsKnown)
{
    plug();
    tracker.set_modules({"m1", "m2"});
    ask();
    EXPECT_THAT(shown().waiting_for, ElementsAre("m1", "m2"));
    answer("m2");
    answer("stranger");
    answer("m1");
    end(true);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].decider, "m1");
    EXPECT_TRUE(decisions[0].complete);
    EXPECT_FALSE(decisions[0].answers.at(1).registered);
}

TEST_F(TrackerModulesTest, TheNextCheckIsSeenWholeWhenTheModulesAreKnownByThen)
{
    pass_quickly();
    tracker.set_modules({"m1", "m2"});
    restart();
    ask();
    answer("m1");
    answer("m2");
    end(true);
    ASSERT_THAT(decisions, SizeIs(2));
    EXPECT_TRUE(decisions[1].complete);
}

TEST_F(TrackerModulesTest, ARememberedListIsGoneBy)
{
    tracker.take_up({card(true), now - 20s, {"m2"}, {{"m1", 0, "", now - 19s}}, false, ask_unheard()}, now);
    plug(true);
    find_request();
    tracker.snapshot_done(now);
    EXPECT_THAT(shown().waiting_for, ElementsAre("m2"));
    answer("m2");
    end(true);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].decider, "m2");
}

TEST_F(TrackerModulesTest, ARememberedCheckWithoutAListNamesNobodyAsSilent)
{
    tracker.take_up({card(true), now - 20s, {}, {}, false, ask_unheard()}, now);
    plug(true);
    find_request();
    tracker.snapshot_done(now);
    now += 280s;
    time_out();
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::silence);
    EXPECT_THAT(decisions[0].silent, IsEmpty());
}

} // namespace
