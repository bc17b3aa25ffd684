// The budget of an outage: one for all calls, counted from its beginning.
#include "store/connection/outage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;
using store::Clock;

class OutageTest : public testing::Test
{
protected:
    // How long a call that begins now may wait, to half a second.
    milliseconds left() const
    {
        return std::chrono::duration_cast<milliseconds>(outage.deadline() - Clock::now());
    }

    platform::Messages messages{{}};
    store::Outage outage{seconds(5), messages};
};

TEST_F(OutageTest, WithoutOneEachCallHasTheWholeBudget)
{
    EXPECT_EQ(outage.budget(), seconds(5));
    EXPECT_FALSE(outage.is_exhausted());
    EXPECT_GT(left(), milliseconds(4500));
    EXPECT_LE(left(), seconds(5));
    outage.end();
}

TEST_F(OutageTest, TheBudgetCountsFromItsBeginning)
{
    const Clock::time_point began = Clock::now() - seconds(4);
    outage.begin(began, "why");
    EXPECT_EQ(outage.deadline(), began + seconds(5));
    EXPECT_FALSE(outage.is_exhausted());
    outage.begin(Clock::now(), "again");
    EXPECT_EQ(outage.deadline(), began + seconds(5)) << "it is the same outage";
}

TEST_F(OutageTest, OfAnExhaustedBudgetAShortAttemptIsLeft)
{
    outage.begin(Clock::now() - seconds(6), "why");
    EXPECT_TRUE(outage.is_exhausted());
    EXPECT_GT(left(), milliseconds(0));
    EXPECT_LE(left(), milliseconds(50));
}

TEST_F(OutageTest, TheNextOneHasABudgetOfItsOwn)
{
    outage.begin(Clock::now() - seconds(6), "why");
    outage.end();
    outage.end();
    EXPECT_FALSE(outage.is_exhausted());
    EXPECT_GT(left(), milliseconds(4500));
    const Clock::time_point began = Clock::now() - seconds(3);
    outage.begin(began, "another");
    EXPECT_EQ(outage.deadline(), began + seconds(5));
}

TEST_F(OutageTest, ABudgetShorterThanAnAttemptBoundsIt)
{
    store::Outage brief(milliseconds(10), messages);
    brief.begin(Clock::now() - seconds(1), "why");
    // Which of two operands is evaluated first is the compiler's choice.
    const Clock::time_point deadline = brief.deadline();
    EXPECT_LE(deadline - Clock::now(), milliseconds(10));
}

TEST_F(OutageTest, AServerThatCanBeConnectedToRenewsTheBudget)
{
    outage.renew();
    EXPECT_FALSE(outage.is_exhausted());
    outage.begin(Clock::now() - seconds(6), "why");
    outage.renew();
    EXPECT_FALSE(outage.is_exhausted());
    EXPECT_GT(left(), milliseconds(4500));
    EXPECT_LE(left(), seconds(5));
}

TEST_F(OutageTest, AfterAnAttemptThereIsNoneForAMoment)
{
    outage.begin(Clock::now() - seconds(6), "why");
    EXPECT_EQ(outage.resting(), std::nullopt) << "none was made yet";
    outage.rest("refused");
    EXPECT_EQ(outage.resting(), "refused");
    const Clock::time_point began = Clock::now();
    while (outage.resting()) {
        ASSERT_LT(Clock::now(), began + seconds(10));
    }
    EXPECT_TRUE(outage.is_exhausted());
}

TEST_F(OutageTest, AReturnIsTriedAtOnce)
{
    outage.begin(Clock::now() - seconds(6), "why");
    outage.rest("refused");
    outage.renew();
    EXPECT_EQ(outage.resting(), std::nullopt);
    outage.rest("refused");
    outage.end();
    EXPECT_EQ(outage.resting(), std::nullopt);
}

TEST(OutageMessages, GoToAHandlerThatDoesNotKnowTheProblem)
{
    std::vector<std::string> said;
    platform::Messages messages([&](int32_t, const std::string &text) { said.push_back(text); });
    store::Outage outage(seconds(5), messages);
    outage.begin(Clock::now(), "why", store::Outage::Known::no);
    outage.begin(Clock::now(), "again", store::Outage::Known::no);
    outage.end();
    EXPECT_THAT(said, testing::ElementsAre("store lost: why"));
}

TEST(OutageMessages, AreElseForTheLogAlone)
{
    std::vector<std::string> said;
    platform::Messages messages([&](int32_t, const std::string &text) { said.push_back(text); });
    store::Outage outage(seconds(5), messages);
    outage.begin(Clock::now(), "why");
    outage.end();
    EXPECT_THAT(said, testing::IsEmpty());
}

} // namespace
