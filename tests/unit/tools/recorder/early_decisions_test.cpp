// Decisions that are completed by what the history has of their checks.
#include "early_decisions.h"

#include <gmock/gmock.h>

namespace recorder
{

namespace
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr history::Time noon = history::Time{} + 1'700'049'600s;

class EarlyDecisionsTest : public testing::Test
{
protected:
    EarlyDecisionsTest()
    {
        check_.card.position = {1, 3, 0};
        check_.requested_at = noon;
        check_.waiting_for = {"m2", "m3"};
        check_.answers = {{"m1", 0, "", noon + 1s, true, 1000ms}};
    }
    std::shared_ptr<history::Decision> add(history::Outcome outcome, int slot = 3)
    {
        const auto decision = std::make_shared<history::Decision>();
        decision->card.position = {1, slot, 0};
        decision->outcome = outcome;
        decisions_.add(decision);
        return decision;
    }
    static std::vector<std::string> modules_of(const history::Decision &decision)
    {
        std::vector<std::string> names;
        for (const history::Answer &answer : decision.answers) {
            names.push_back(answer.module);
        }
        return names;
    }

    EarlyDecisions decisions_;
    history::OpenCheck check_;
};

} // namespace

TEST_F(EarlyDecisionsTest, TheFirstOfThePositionHasTheBeginningOfItsCheck)
{
    const auto other = add(history::Outcome::passed, 4);
    const auto exempt = add(history::Outcome::exempt);
    const auto unasked = add(history::Outcome::unasked);
    const auto first = add(history::Outcome::silence);
    const auto second = add(history::Outcome::passed);
    first->answers = {{"m1", 0, "", noon + 5s, true, {}}, {"m2", 0, "", noon + 6s, true, {}}};
    first->told_before = 2;
    first->silent = {"m1", "m3"};
    decisions_.complete(check_);
    EXPECT_EQ(first->requested_at, noon);
    EXPECT_THAT(modules_of(*first), ElementsAre("m1", "m2"))
        << "the first one stood, and was delivered again";
    EXPECT_EQ(first->answers[0].at, noon + 1s);
    EXPECT_EQ(first->told_before, 2U);
    EXPECT_THAT(first->silent, ElementsAre("m3")) << "m1 had answered";
    for (const auto &untouched : {other, exempt, unasked, second}) {
        EXPECT_EQ(untouched->requested_at, std::nullopt);
        EXPECT_THAT(untouched->answers, IsEmpty());
    }
}

TEST_F(EarlyDecisionsTest, AnotherAnswerOfAModuleIsKept)
{
    const auto first = add(history::Outcome::denied);
    first->answers = {{"m1", -1, "", noon + 5s, true, {}}};
    decisions_.complete(check_);
    EXPECT_THAT(modules_of(*first), ElementsAre("m1", "m1"));
    EXPECT_EQ(first->told_before, 1U) << "only what the history had was counted before";
}

TEST_F(EarlyDecisionsTest, OneWhoseRequestWasSeenIsOnAnotherCheck)
{
    const auto first = add(history::Outcome::passed);
    first->requested_at = noon + 60s;
    decisions_.complete(check_);
    EXPECT_EQ(first->requested_at, noon + 60s);
    EXPECT_THAT(first->answers, IsEmpty());
}

TEST_F(EarlyDecisionsTest, OnceTheHistoryIsOpenNoneIsEarly)
{
    const auto first = add(history::Outcome::passed);
    decisions_.clear();
    decisions_.complete(check_);
    EXPECT_EQ(first->requested_at, std::nullopt);
}

} // namespace recorder
