// What is computed from decisions and answers alone.
#include "admission/decision.h"

#include <gtest/gtest.h>

using namespace admission;
using namespace std::chrono_literals;

TEST(DecisionTest, LastsFromItsRequestUnlessAClockWasSetBack)
{
    Decision decision;
    decision.decided_at = Time{} + 100s;
    EXPECT_EQ(duration_of(decision), std::nullopt);
    decision.requested_at = Time{} + 98s;
    EXPECT_EQ(duration_of(decision), 2s);
    decision.requested_at = decision.decided_at;
    EXPECT_EQ(duration_of(decision), 0s);
    decision.requested_at = Time{} + 101s;
    EXPECT_EQ(duration_of(decision), std::nullopt);
}

TEST(DecisionTest, IsCutOffWhereAWithdrawalHasAReason)
{
    Decision decision;
    decision.outcome = Outcome::withdrawn;
    EXPECT_FALSE(was_cut_off(decision));
    decision.reason = daemon_restarted;
    EXPECT_TRUE(was_cut_off(decision));
    decision.outcome = Outcome::denied;
    EXPECT_FALSE(was_cut_off(decision));
}

TEST(AnswerTest, WasHeardWhenItIsTheModulesLastOne)
{
    const std::vector<Answer> answers{{"m1", 1, "hot"}, {"m1", 0, ""}, {"m2", 1, "x"}};
    EXPECT_TRUE(was_heard(answers, {"m1", 0, ""}));
    EXPECT_FALSE(was_heard(answers, {"m1", 1, "hot"}));
    EXPECT_FALSE(was_heard(answers, {"m2", 1, "y"}));
    EXPECT_FALSE(was_heard(answers, {"m2", 0, "x"}));
    EXPECT_FALSE(was_heard(answers, {"m3", 0, ""}));
}

TEST(AnswerTest, IsKnownByItsRevisionWhereBothHaveOne)
{
    Answer heard{"m1", 0, "fine"};
    heard.revision = 5;
    Answer again = heard;
    EXPECT_TRUE(was_heard({heard}, again));
    again.revision = 6;
    EXPECT_FALSE(was_heard({heard}, again));
    again.revision = 0;
    EXPECT_TRUE(was_heard({heard}, again));
}

TEST(CardFactsTest, AreOfOneCardByNameAndSerial)
{
    CardFacts one;
    one.name = "lc";
    one.serial = "0a";
    CardFacts other = one;
    other.node_type = 7;
    EXPECT_TRUE(is_same_card(one, other));
    other.serial = "0b";
    EXPECT_FALSE(is_same_card(one, other));
    other.serial = "0a";
    other.name = "x";
    EXPECT_FALSE(is_same_card(one, other));
    EXPECT_TRUE(is_same_card(one, {}));
    EXPECT_TRUE(is_same_card({}, other));
    CardFacts half;
    half.serial = "0a";
    EXPECT_FALSE(is_same_card(one, half));
}
