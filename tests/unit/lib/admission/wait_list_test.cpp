// Whom the daemon waits for.
#include "wait_list.h"

#include <gmock/gmock.h>

using namespace admission;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

const Modules three{{"m1", "m2", "m3"}};

std::vector<Answer> answers_of(const std::vector<std::string> &modules)
{
    std::vector<Answer> answers;
    answers.reserve(modules.size());
    for (const std::string &module : modules) {
        answers.push_back({module});
    }
    return answers;
}

TEST(WaitListTest, IsFilledWithAllAndLosesWhoeverPasses)
{
    WaitList list;
    EXPECT_FALSE(list.is_known());
    EXPECT_FALSE(list.any_will_do());
    list.fill(three, true);
    EXPECT_TRUE(list.is_exact());
    EXPECT_THAT(list.waiting({}, three), ElementsAre("m1", "m2", "m3"));
    list.passed("m2", three);
    list.passed("stranger", three);
    EXPECT_THAT(list.waiting({}, three), ElementsAre("m1", "m3"));
    EXPECT_FALSE(list.any_will_do());
}

TEST(WaitListTest, WhoHasAnsweredIsNotWaitedForAlsoWhileItsAnswerIsUnread)
{
    WaitList list;
    list.fill(three, true);
    EXPECT_THAT(list.waiting(answers_of({"m3"}), three), ElementsAre("m1", "m2"));
}

TEST(WaitListTest, WithNobodyLeftAnyWillDo)
{
    WaitList list;
    list.fill(three, false);
    EXPECT_FALSE(list.is_exact());
    list.clear();
    EXPECT_TRUE(list.any_will_do());
    EXPECT_TRUE(list.is_exact());
    EXPECT_THAT(list.waiting(answers_of({"m2"}), three), ElementsAre("m1", "m3"));
}

TEST(WaitListTest, OfTwoWithOneNameOneIsWaitedForInVain)
{
    const Modules twins{{"m1", "m1"}};
    WaitList list;
    list.fill(twins, true);
    list.passed("m1", twins);
    list.passed("m1", twins);
    EXPECT_THAT(list.waiting(answers_of({"m1"}), twins), ElementsAre("m1"));
    list.clear();
    EXPECT_THAT(list.waiting(answers_of({"m1"}), twins), IsEmpty());
}

TEST(WaitListTest, OfUnknownModulesNobodyIsNamedUntilTheyAreKnown)
{
    WaitList list;
    list.fill(std::nullopt, true);
    EXPECT_FALSE(list.is_known());
    EXPECT_FALSE(list.is_exact());
    list.passed("m1", std::nullopt);
    EXPECT_THAT(list.waiting({}, three), IsEmpty());
    EXPECT_FALSE(list.any_will_do());
    list.learn(*three);
    EXPECT_TRUE(list.is_exact());
    EXPECT_THAT(list.waiting({}, three), ElementsAre("m1", "m2", "m3"));
}

TEST(WaitListTest, IsToldByWhoKnowsIt)
{
    WaitList list;
    EXPECT_FALSE(list.is_set());
    list.set({"m2"}, false, std::nullopt);
    EXPECT_TRUE(list.is_set());
    EXPECT_TRUE(list.is_known());
    EXPECT_FALSE(list.is_exact());
    EXPECT_THAT(list.waiting({}, std::nullopt), ElementsAre("m2"));
    list.passed("m2", std::nullopt);
    EXPECT_TRUE(list.any_will_do());
    list.set({"m1", "m2"}, true, three);
    EXPECT_TRUE(list.any_will_do());
    list.set({}, false, std::nullopt);
    EXPECT_FALSE(list.is_known());
    list.set({"m1"}, true, std::nullopt);
    EXPECT_FALSE(list.is_known());
    list.fill(three, true);
    EXPECT_FALSE(list.is_set());
}

} // namespace
