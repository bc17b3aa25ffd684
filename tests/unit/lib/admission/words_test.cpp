// Outcomes and states in words.
#include "admission/words.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace admission;

TEST(WordsTest, OutcomesGoThereAndBack)
{
    for (const auto outcome : {Outcome::passed, Outcome::silence, Outcome::denied, Outcome::exempt,
                               Outcome::unasked, Outcome::withdrawn, Outcome::unseen}) {
        EXPECT_EQ(outcome_of(word_of(outcome)), outcome);
    }
    EXPECT_EQ(outcome_of("perhaps"), std::nullopt);
    EXPECT_STREQ(word_of(Outcome::silence), "silence");
    EXPECT_STREQ(word_of(Outcome::unasked), "unasked");
}

TEST(WordsTest, EachStateHasAWordAndATextOfItsOwn)
{
    std::set<std::string> words;
    std::set<std::string> texts;
    for (const State state : all_states()) {
        words.insert(word_of(state));
        texts.insert(text_of(state));
    }
    EXPECT_EQ(words.size(), 9U);
    EXPECT_EQ(texts.size(), 9U);
    EXPECT_EQ(all_states().front(), State::absent);
    EXPECT_EQ(all_states().back(), State::unasked);
    EXPECT_STREQ(word_of(State::offline), "offline");
}
