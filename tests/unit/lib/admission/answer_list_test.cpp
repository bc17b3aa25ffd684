// What the modules answered.
#include "answer_list.h"

#include <gmock/gmock.h>

using namespace admission;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

Answer answer(const std::string &module, uint64_t revision, bool registered = true)
{
    Answer made;
    made.module = module;
    made.revision = revision;
    made.registered = registered;
    return made;
}

TEST(AnswerListTest, KeepsTheLastSixteenOfEachModuleAndOfAllStrangers)
{
    AnswerList list;
    list.add(answer("m1", 1));
    list.set_told();
    for (uint64_t i = 0; i < 20; ++i) {
        list.add(answer("m2", 100 + i));
        list.add(answer("stranger" + std::to_string(i), 200 + i, false));
        if (i == 0) {
            list.set_told();
        }
    }
    EXPECT_THAT(list.all(), SizeIs(33));
    EXPECT_EQ(list.all().front().module, "m1");
    EXPECT_EQ(list.told(), 1U) << "two that were reported had to go";
    EXPECT_EQ(list.find("m2", 103, true), nullptr);
    EXPECT_NE(list.find("m2", 104, true), nullptr);
}

TEST(AnswerListTest, OfAnEarlierChecksOnlyTheUnreadAreKept)
{
    AnswerList list;
    for (const char *module : {"m1", "m2", "m3"}) {
        list.add(answer(module, 5));
        list.set_standing(module, 5);
    }
    list.set_told();
    list.add(answer("m3", 6));
    list.set_standing("m3", 6);
    list.set_gone("m1");
    list.begin_check();
    ASSERT_THAT(list.all(), SizeIs(2));
    EXPECT_EQ(list.all()[0].module, "m2");
    EXPECT_EQ(list.all()[1].revision, 6U);
    EXPECT_EQ(list.told(), 1U);
    EXPECT_TRUE(list.stands(answer("m2", 5)));
    EXPECT_FALSE(list.stands(answer("m2", 4)));
    EXPECT_FALSE(list.stands(answer("m1", 5)));
}

TEST(AnswerListTest, OneThatWasOverwrittenCountsOnceTheDaemonReadIt)
{
    AnswerList list;
    for (uint64_t revision = 1; revision <= 20; ++revision) {
        list.add(answer("m1", revision));
        list.set_standing("m1", revision);
        list.begin_check();
    }
    list.add(answer("m1", 21));
    list.set_standing("m1", 21);
    list.begin_check();
    ASSERT_THAT(list.all(), ElementsAre(Field(&Answer::revision, 21)));
    for (const uint64_t gone_or_unknown : {uint64_t{4}, uint64_t{0}, uint64_t{22}}) {
        list.set_read("m1", gone_or_unknown);
    }
    list.set_read("m2", 20);
    ASSERT_THAT(list.all(), SizeIs(1)) << "sixteen are kept";
    list.set_read("m1", 20);
    list.set_read("m1", 5);
    list.set_read("m1", 20);
    EXPECT_THAT(list.all(), ElementsAre(Field(&Answer::revision, 21), Field(&Answer::revision, 20),
                                        Field(&Answer::revision, 5)));
    EXPECT_EQ(list.told(), 0U);
}

TEST(AnswerListTest, OfTwoWithOneRevisionTheLaterOneWasRead)
{
    AnswerList list;
    list.add(answer("m1", 1));
    list.begin_check();
    Answer later = answer("m1", 1); // the store lost its data in between
    later.reason = "later";
    list.add(later);
    list.set_read("m1", 1);
    EXPECT_THAT(list.all(), ElementsAre(later));
    list.begin_check();
    list.set_read("m1", 1);
    EXPECT_THAT(list.all(), ElementsAre(later));
}

TEST(AnswerListTest, FindsTheOneOfARevisionOrTheLastWhereNoneIsKnown)
{
    AnswerList list;
    list.add(answer("m1", 5));
    list.add(answer("m1", 7));
    list.add(answer("m2", 8));
    EXPECT_EQ(list.find("m1", 5, true), &list.all()[0]);
    EXPECT_EQ(list.find("m1", 5, false), &list.all()[0]) << "it was overwritten by a denial";
    EXPECT_EQ(list.find("m1", 6, true), nullptr);
    EXPECT_EQ(list.find("m1", 0, true), &list.all()[1]);
    EXPECT_EQ(list.find("m1", 0, false), nullptr);
    EXPECT_EQ(list.find("m3", 0, true), nullptr);
    list.replace({answer("m1", 0)});
    EXPECT_NE(list.find("m1", 6, true), nullptr);
    EXPECT_EQ(list.find("m1", 6, false), nullptr);
    EXPECT_EQ(list.told(), 0U);
}

} // namespace
