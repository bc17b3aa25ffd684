// What the recorder does besides decisions: heartbeats, limits, notes, and its end.
#include "recorder_fixture.h"

namespace recorder
{

namespace
{

using testing::Contains;
using testing::Not;
using testing::Optional;

class UpkeepTest : public RecorderTest
{
protected:
    void damage_file() const
    {
        // Else the log would heal it when the file is closed.
        history::Database(folder_.path("h"), history::Database::Access::write)
            .run("PRAGMA wal_checkpoint(TRUNCATE)");
        std::ofstream(folder_.path("h")) << std::string(500'000, 'x'); // a smaller one would be a cut one
    }
};

} // namespace

TEST_F(UpkeepTest, AHeartbeatIsDueEveryTenSeconds)
{
    start();
    listen();
    const history::Time first = now_;
    EXPECT_EQ(file().alive_at(), first);
    pass(9s);
    EXPECT_EQ(file().alive_at(), first);
    pass(1s);
    EXPECT_EQ(file().alive_at(), first + 10s);
    pass(-3600s);
    EXPECT_EQ(file().alive_at(), first + 10s - 3600s) << "the clock was set back";
}

TEST_F(UpkeepTest, WhatIsTooOldGoesInSteps)
{
    limits_.age = 1h;
    {
        history::Writer writer(folder_.path("h"), noon, [](const std::string &) {});
        history::Decision old;
        old.outcome = Outcome::passed;
        for (int i = 0; i < 125; ++i) {
            old.decided_at = noon - 2h + i * 1s;
            writer.add(old);
        }
    }
    start(); // which does a first step
    EXPECT_THAT(file().decisions(), SizeIs(75));
    EXPECT_TRUE(recorder_->tick(now_)) << "there is more to do";
    EXPECT_THAT(file().decisions(), SizeIs(25));
    for (int steps = 0; recorder_->tick(now_); ++steps) {
        ASSERT_LT(steps, 10);
    }
    EXPECT_THAT(file().decisions(), SizeIs(1)) << "the last one of the position stays";
}

TEST_F(UpkeepTest, ALateAnswerIsKeptAndMeasured)
{
    start();
    listen();
    plug(3);
    ask(3);
    deny(3);
    now_ += 2s;
    answer(3, "m1");
    pass(1s);
    const std::vector<history::Decision> decisions = file().decisions();
    ASSERT_THAT(decisions, SizeIs(1));
    ASSERT_THAT(decisions[0].answers, SizeIs(2));
    EXPECT_EQ(decisions[0].answers[1].took, 2s);
    EXPECT_THAT(metrics(), HasSubstr("cg_module_answer_seconds_count{module=\"m1\"} 1\n"));
}

TEST_F(UpkeepTest, TheServiceLogIsCountedFromTheStartOn)
{
    note_service("1700049600000 start 42");
    start();
    EXPECT_THAT(file().life({}, {}), SizeIs(1));
    EXPECT_THAT(metrics(), HasSubstr("cg_daemon_starts_total 0\n"));
    note_service("1700049600000 exit exited 77");
    note_service("1700049600000 start 43");
    pass(1s);
    EXPECT_THAT(file().life({}, {}), SizeIs(3));
    EXPECT_THAT(metrics(), HasSubstr("cg_daemon_starts_total 1\n"));
    EXPECT_THAT(metrics(), HasSubstr("cg_daemon_exits_total{status=\"77\"} 1\n"));
}

TEST_F(UpkeepTest, NothingIsConcludedBeforeItListens)
{
    live_before();
    start();
    recorder_->flush(now_);
    EXPECT_THAT(file().open_checks(), SizeIs(1)) << "it is not known whether it still stands";
    EXPECT_THAT(metrics(), Not(HasSubstr("cg_cards{")));
    listen();
    EXPECT_THAT(file().open_checks(), IsEmpty());
    EXPECT_THAT(metrics(), HasSubstr("cg_cards{"));
}

TEST_F(UpkeepTest, TheNextFileHasWhatTheOneMovedAsideHad)
{
    start();
    listen();
    recorder_->store_lost(1, now_);
    damage_file();
    pass(40s);
    pass(1s);
    pass(1s);
    ASSERT_THAT(log_, Contains(HasSubstr("it was moved to")));
    ASSERT_THAT(file().gaps({}, {}), SizeIs(1));
    EXPECT_EQ(file().gaps({}, {})[0].from, noon);
    EXPECT_EQ(file().gaps({}, {})[0].until, std::nullopt);
    recorder_->store_returned(now_);
    recorder_->snapshot_done(1, now_);
    EXPECT_EQ(file().gaps({}, {})[0].until, now_);
    kill();
    EXPECT_THAT(history::Writer(folder_.path("h"), now_, {}).modules_note()->names, SizeIs(2));
}

TEST_F(UpkeepTest, ItsEndIsAHeartbeatAndSaysWhatIsLost)
{
    start();
    listen();
    plug(4);
    ask(4);
    now_ += 5s;
    recorder_->end(now_);
    EXPECT_EQ(file().alive_at(), now_);
    EXPECT_THAT(file().open_checks(), SizeIs(1));
    EXPECT_THAT(log_, Not(Contains(HasSubstr("lost"))));
    const FullDisk full;
    answer(4, "m1");
    now_ += 5s;
    recorder_->end(now_);
    EXPECT_THAT(log_, Contains("2 changes could not be written and are lost"));
}

} // namespace recorder
