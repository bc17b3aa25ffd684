// How a card stands, row by row.
#include "admission/state.h"

#include <gtest/gtest.h>

using namespace admission;

namespace
{

constexpr bool pass = true;
constexpr bool deny = false;

TEST(StateTest, ACardThatIsNotThereIsAbsentWhateverStands)
{
    EXPECT_EQ(state_of({}), State::absent);
    EXPECT_EQ(state_of({false, true, true, pass, Outcome::exempt}), State::absent);
}

TEST(StateTest, AMainBoardIsExemptWhereverItIs)
{
    EXPECT_EQ(state_of({true, true, false, pass, Outcome::exempt}), State::exempt);
    EXPECT_EQ(state_of({true, false, false, pass, Outcome::exempt}), State::exempt);
    EXPECT_EQ(state_of({true, true, true, pass, Outcome::exempt}), State::exempt);
    EXPECT_EQ(state_of({true, true, false, deny, Outcome::exempt}), State::denied);
}

TEST(StateTest, AnotherCardThatIsOfflineIsThatAndNothingElse)
{
    EXPECT_EQ(state_of({true, false, false, {}, Outcome::unseen}), State::offline);
    EXPECT_EQ(state_of({true, false, true, {}, Outcome::unseen}), State::offline);
    EXPECT_EQ(state_of({true, false, false, deny, Outcome::denied}), State::offline);
}

TEST(StateTest, AnOpenCheckGoesBeforeAnEarlierResult)
{
    EXPECT_EQ(state_of({true, true, true, {}, Outcome::unseen}), State::waiting);
    EXPECT_EQ(state_of({true, true, true, deny, Outcome::denied}), State::waiting);
    EXPECT_EQ(state_of({true, true, false, {}, Outcome::unseen}), State::undecided);
}

TEST(StateTest, AResultSaysHow)
{
    EXPECT_EQ(state_of({true, true, false, pass, Outcome::passed}), State::passed);
    EXPECT_EQ(state_of({true, true, false, pass, Outcome::unseen}), State::passed);
    EXPECT_EQ(state_of({true, true, false, pass, Outcome::silence}), State::silence);
    EXPECT_EQ(state_of({true, true, false, pass, Outcome::unasked}), State::unasked);
    EXPECT_EQ(state_of({true, true, false, deny, Outcome::denied}), State::denied);
    EXPECT_EQ(state_of({true, true, false, deny, Outcome::unseen}), State::denied);
}

} // namespace
