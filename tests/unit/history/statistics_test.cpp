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

} // namespace history
