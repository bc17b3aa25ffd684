// How modules answer.
#include "history_fixture.h"

namespace history
{

namespace
{

using testing::IsEmpty;
using testing::SizeIs;

class Statistics : public HistoryTest
{
protected:
    // One decision with one answer.
    void answered(const std::string &module, Time at, std::optional<std::chrono::milliseconds> took,
                  int32_t ret = 0, bool registered = true)
    {
        Decision decision = decision_at(at);
        decision.answers = {{module, ret, "", at, registered, took}};
        recorder_->add(decision);
    }

    std::unique_ptr<Writer> recorder_ = writer();
};

} // namespace

TEST_F(Statistics, AnEmptyHistoryKnowsNoModule)
{
    EXPECT_THAT(Reader(path()).module_statistics({}), IsEmpty());
}

TEST_F(Statistics, CountsTheSilencesSinceTheLastAnswer)
{
    const auto waited_in_vain = [&](Time at, Outcome outcome) {
        Decision decision = decision_at(at);
        decision.outcome = outcome;
        decision.answers.clear();
        decision.silent = {"m1", "m2"};
        recorder_->add(decision);
    };
    waited_in_vain(noon, Outcome::silence);
    answered("m1", noon + 1s, 100ms);
    EXPECT_EQ(Reader(path()).module_statistics({})[0].silences_since, 0);
    waited_in_vain(noon + 2s, Outcome::silence);
    waited_in_vain(noon + 3s, Outcome::withdrawn); // it had time left
    waited_in_vain(noon + 4s, Outcome::silence);
    const std::vector<ModuleStatistics> all = Reader(path()).module_statistics(noon + 4s);
    ASSERT_THAT(all, SizeIs(2));
    EXPECT_EQ(all[0].silences_since, 2) << "whatever time is asked for";
    EXPECT_EQ(all[1].silences_since, 3) << "it never answered";
}

TEST_F(Statistics, CountsAnswersByWhatTheySay)
{
    answered("m1", noon, 100ms);
    answered("m1", noon + 1s, 300ms, -1);
    answered("m1", noon + 2s, {}, 0, false);
    const std::vector<ModuleStatistics> all = Reader(path()).module_statistics({});
    ASSERT_THAT(all, SizeIs(1));
    EXPECT_EQ(all[0].module, "m1");
    EXPECT_EQ(all[0].answers, 3);
    EXPECT_EQ(all[0].passes, 2);
    EXPECT_EQ(all[0].denials, 1);
    EXPECT_EQ(all[0].unregistered, 1);
    EXPECT_EQ(all[0].silences, 0);
    ASSERT_TRUE(all[0].last);
    EXPECT_EQ(all[0].last->at, noon + 2s);
    EXPECT_FALSE(all[0].last->registered);
}

TEST_F(Statistics, WhoWasWaitedForWhenACheckWasCutOffWasNotSilent)
{
    Decision decision = decision_at(noon);
    decision.silent = {"m3"};
    decision.outcome = Outcome::withdrawn;
    decision.reason = admission::daemon_restarted;
    recorder_->add(decision);
    EXPECT_THAT(Reader(path()).module_statistics({}), SizeIs(2)); // those who answered
    decision.outcome = Outcome::silence;
    recorder_->add(decision);
    const std::vector<ModuleStatistics> all = Reader(path()).module_statistics({});
    ASSERT_THAT(all, SizeIs(3));
    EXPECT_EQ(all[2].silences, 1);
}

TEST_F(Statistics, MedianAnd95thPercentileAreTheNearestRanks)
{
    for (int i = 1; i <= 100; ++i) {
        answered("m1", noon + i * 1s, std::chrono::milliseconds(i * 10));
    }
    answered("m2", noon, 5ms);
    answered("m3", noon, {});
    const std::vector<ModuleStatistics> all = Reader(path()).module_statistics({});
    ASSERT_THAT(all, SizeIs(3));
    EXPECT_EQ(all[0].median, 500ms);
    EXPECT_EQ(all[0].percentile_95, 950ms);
    EXPECT_EQ(all[1].median, 5ms);
    EXPECT_EQ(all[1].percentile_95, 5ms);
    EXPECT_EQ(all[2].median, std::nullopt);
}

TEST_F(Statistics, ASilentModuleIsListedThoughItNeverAnswered)
{
    Decision silence = decision_at(noon);
    silence.answers.clear();
    silence.silent = {"m2"};
    recorder_->add(silence);
    recorder_->set_open({{slot4, "", "", 0, 0, 0, 0, true}, noon, {"m3"}, {{"m1", 0, "", noon, true, 7ms}}});
    const std::vector<ModuleStatistics> all = Reader(path()).module_statistics({});
    ASSERT_THAT(all, SizeIs(3));
    EXPECT_EQ(all[0].answers, 1); // to a check that still stands
    EXPECT_EQ(all[0].median, 7ms);
    EXPECT_EQ(all[1].module, "m2");
    EXPECT_EQ(all[1].silences, 1);
    EXPECT_FALSE(all[1].last);
    EXPECT_EQ(all[2].module, "m3");
    EXPECT_EQ(all[2].waited_for, 1);
}

TEST_F(Statistics, ATimeSpanLimitsAllButTheLastAnswer)
{
    answered("m1", noon, 100ms);
    answered("m2", noon + 1h, 200ms);
    const std::vector<ModuleStatistics> all = Reader(path()).module_statistics(noon + 1min);
    ASSERT_THAT(all, SizeIs(2));
    EXPECT_EQ(all[0].answers, 0);
    EXPECT_EQ(all[0].median, std::nullopt);
    EXPECT_EQ(all[0].last->at, noon);
    EXPECT_EQ(all[1].answers, 1);
}

TEST_F(Statistics, AnAnswerThatStandsWithTwoDecisionsOnACardCountsOnce)
{
    const Answer denial{"m1", 1, "no", noon, true, 7ms};
    for (const Position &position : {slot3, slot4}) {
        Decision decision = decision_at(noon, position);
        decision.answers = {denial};
        recorder_->add(decision);
        decision.answers.push_back({"m1", 0, "", noon + 1s, true, 1007ms});
        recorder_->add(decision);
    }
    const std::vector<ModuleStatistics> all = Reader(path()).module_statistics({});
    ASSERT_THAT(all, SizeIs(1));
    EXPECT_EQ(all[0].answers, 4);
    EXPECT_EQ(all[0].denials, 2);
}

TEST_F(Statistics, ALateAnswerIsAnAnswer)
{
    Decision silence = decision_at(noon);
    silence.answers.clear();
    silence.silent = {"m2"};
    recorder_->add(silence);
    recorder_->add_late_answer(slot3, {"m2", 0, "at last", noon + 9s, true, 309000ms});
    recorder_->add_late_answer(slot4, {"m3", 0, "no decision", noon + 9s, true, {}});
    const std::vector<ModuleStatistics> all = Reader(path()).module_statistics({});
    ASSERT_THAT(all, SizeIs(1));
    EXPECT_EQ(all[0].silences, 1);
    ASSERT_TRUE(all[0].last);
    EXPECT_EQ(all[0].last->reason, "at last");
}

TEST_F(Statistics, LateAnswersWithoutEndAreNotKeptWithoutEnd)
{
    recorder_->add(decision_at(noon));
    for (int i = 0; i < 40; ++i) {
        recorder_->add_late_answer(slot3, {"m1", 0, "", noon + i * 1s, true, {}});
        recorder_->add_late_answer(slot3, {"x" + std::to_string(i), 0, "", noon + i * 1s, false, {}});
    }
    EXPECT_THAT(recorder_->last_decisions().at(0).answers, SizeIs(33)); // 16 of m1, 1 of m2, 16 strangers
}

TEST_F(Statistics, WhatIsTooLongIsCutAtACharacter)
{
    Decision decision = decision_at(noon);
    decision.reason = std::string(255, 'a') + "\u00e4b";
    decision.answers[0].reason = std::string(254, 'a') + "\u00e4b";
    decision.card.name = std::string(1000, '\xbf'); // no characters at all
    recorder_->add(decision);
    const Decision kept = recorder_->last_decisions().at(0);
    EXPECT_EQ(kept.reason, std::string(255, 'a'));
    EXPECT_EQ(kept.answers[0].reason, std::string(254, 'a') + "\u00e4");
    EXPECT_EQ(kept.card.name.size(), 253U);
}

} // namespace history
