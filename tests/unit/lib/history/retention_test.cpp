// Keeping the file within its limits.
#include <filesystem>

#include "database.h"
#include "history_fixture.h"

namespace history
{

namespace
{

using RetentionTest = HistoryTest;

} // namespace

TEST_F(RetentionTest, AgeIsLimitedButForTheLastOfEachPosition)
{
    const auto recorder = writer();
    for (int i = 0; i < 500; ++i) {
        recorder->add(decision_at(noon + i * 1s));
    }
    recorder->add(decision_at(noon, slot4));
    recorder->add(decision_at(noon + 48h));
    recorder->add_gap({noon, noon + 1s, "the store was away"});
    recorder->add_life({noon, true, 42, "", ""}, "1 start 42");
    const Limits limits{24h, INT64_MAX};
    int steps = 1;
    for (; recorder->trim(limits, noon + 49h); ++steps) {
        ASSERT_LT(steps, 100);
    }
    EXPECT_GT(steps, 2);
    const Reader reader(path());
    const std::vector<Decision> left = reader.decisions();
    ASSERT_THAT(left, SizeIs(2));
    EXPECT_EQ(left[0].card.position, slot4);
    EXPECT_EQ(left[1].decided_at, noon + 48h);
    EXPECT_THAT(reader.gaps({}, {}), IsEmpty());
    EXPECT_THAT(reader.life({}, {}), IsEmpty());
    const Database raw(path(), Database::Access::read);
    EXPECT_EQ(raw.number("SELECT count(*) FROM answers"), 4);
}

TEST_F(RetentionTest, SizeIsLimitedAndTheFileShrinks)
{
    constexpr int64_t limit = 1 << 20;
    const auto recorder = writer();
    Decision fat = decision_at(noon);
    fat.reason = std::string(4000, 'x');
    for (int i = 0; i < 300; ++i) {
        fat.decided_at = noon + i * 1s;
        fat.card.position.slotid = i;
        recorder->add(fat);
    }
    const Limits limits{24h, limit};
    for (int steps = 0; recorder->trim(limits, noon); ++steps) {
        ASSERT_LT(steps, 200);
    }
    const Database raw(path(), Database::Access::read);
    EXPECT_LE(raw.number("PRAGMA page_count") * raw.number("PRAGMA page_size"), limit);
    const std::vector<Decision> left = Reader(path()).decisions();
    ASSERT_FALSE(left.empty());
    EXPECT_EQ(left.back().decided_at, noon + 299s); // the oldest went first
}

} // namespace history
