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
        check_.request = {7, {"daemon", 5, {}}};
        check_.waiting_for = {"m2", "m3"};
        check_.answers = {{"m1", 0, "", noon + 1s, true, 1000ms}};
    }
    // A decision on the check that the daemon's write of this number began.
    std::shared_ptr<history::Decision> add(history::Outcome outcome, uint64_t request = 5)
    {
        auto decision = std::make_shared<history::Decision>();
        decision->card.position = {1, 3, 0};
        decision->request = {0, {"daemon", request, {}}};
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

TEST_F(EarlyDecisionsTest, ThoseOnACheckHaveItsBeginning)
{
    const auto unasked = add(history::Outcome::unasked);
    const auto first = add(history::Outcome::silence);
    const auto second = add(history::Outcome::denied);
    const auto later = add(history::Outcome::passed, 9);
    first->answers = {{"m1", 0, "", noon + 5s, true, {}}, {"m2", 0, "", noon + 6s, true, {}}};
    first->told_before = 2;
    first->silent = {"m1", "m3"};
    EXPECT_TRUE(decisions_.complete(check_));
    EXPECT_EQ(first->requested_at, noon);
    EXPECT_EQ(second->requested_at, noon);
    EXPECT_THAT(modules_of(*second), ElementsAre("m1"));
    EXPECT_THAT(modules_of(*first), ElementsAre("m1", "m2"))
        << "the first one stood, and was delivered again";
    EXPECT_EQ(first->answers[0].at, noon + 1s);
    EXPECT_EQ(first->told_before, 2U);
    EXPECT_THAT(first->silent, ElementsAre("m3")) << "m1 had answered";
    for (const auto &untouched : {unasked, later}) {
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
    const auto first = add(history::Outcome::passed, 6);
    first->requested_at = noon + 60s;
    EXPECT_FALSE(decisions_.complete(check_));
    EXPECT_EQ(first->requested_at, noon + 60s);
    EXPECT_THAT(first->answers, IsEmpty());
}

TEST_F(EarlyDecisionsTest, OnceTheHistoryIsOpenNoneIsEarly)
{
    const auto first = add(history::Outcome::passed);
    decisions_.clear();
    EXPECT_FALSE(decisions_.complete(check_));
    EXPECT_EQ(first->requested_at, std::nullopt);
}

} // namespace recorder
