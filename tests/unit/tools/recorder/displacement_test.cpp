// A recorder whose file somebody deletes, moves, empties or replaces while it records.
#include "recorder_fixture.h"

namespace recorder
{

namespace
{

using testing::Contains;
using testing::Not;

class DisplacementTest : public RecorderTest
{
protected:
    void SetUp() override { begin_with_two_cards(); }
    void expect_that_it_goes_on(const std::string &what)
    {
        EXPECT_THAT(log_, Contains("the history " + what + " and is opened again: " + folder_.path("h") +
                                   "; the last changes of the former one are in " + folder_.path("h") +
                                   ".left-1700049603000-wal"));
        const std::vector<history::Gap> gaps = file().gaps({}, {});
        ASSERT_THAT(gaps, SizeIs(1));
        EXPECT_EQ(gaps[0].from, noon + 1s) << "when the former one was last seen";
        EXPECT_EQ(gaps[0].until, now_);
        EXPECT_EQ(gaps[0].why, "the history " + what);
        EXPECT_EQ(file().alive_at(), now_);
        EXPECT_THAT(file().life({}, {}), SizeIs(1));
        ASSERT_THAT(file().open_checks(), SizeIs(1));
        EXPECT_EQ(file().open_checks()[0].requested_at, noon);
        EXPECT_THAT(metrics(), HasSubstr("cg_recorder_gaps_total 1\n"));
        EXPECT_THAT(metrics(), HasSubstr("cg_recorder_last_gap_end_seconds 1700049603"));
        answer(4, "m2");
        decide(4, true);
        ASSERT_THAT(outcomes(), ElementsAre(Outcome::passed));
        EXPECT_TRUE(file().decisions()[0].complete) << "nothing was missed of it";
        EXPECT_THAT(file().decisions()[0].answers, SizeIs(2));
    }
};

} // namespace

TEST_F(DisplacementTest, ADeletedFileIsMadeAgain)
{
    std::filesystem::remove(folder_.path("h"));
    pass(2s);
    expect_that_it_goes_on("was deleted or moved");
}

TEST_F(DisplacementTest, AMovedFileStaysAsItIs)
{
    std::filesystem::rename(folder_.path("h"), folder_.path("moved"));
    const auto size = std::filesystem::file_size(folder_.path("moved"));
    const auto written = std::filesystem::last_write_time(folder_.path("moved"));
    pass(2s);
    expect_that_it_goes_on("was deleted or moved");
    kill();
    EXPECT_EQ(std::filesystem::file_size(folder_.path("moved")), size);
    EXPECT_EQ(std::filesystem::last_write_time(folder_.path("moved")), written);
    std::filesystem::rename(folder_.path("h") + ".left-1700049603000-wal", folder_.path("moved-wal"));
    const history::Reader moved(folder_.path("moved"));
    EXPECT_THAT(moved.decisions(), SizeIs(1));
    EXPECT_THAT(moved.open_checks(), SizeIs(1));
}

TEST_F(DisplacementTest, AnEmptiedFileIsFilledAgain)
{
    std::ofstream(folder_.path("h"), std::ios::trunc) << "";
    pass(2s);
    expect_that_it_goes_on("was cut");
}

// Nothing that is received after that can be lost, whatever comes first: a decision or the next look.
TEST_F(DisplacementTest, ADecisionAfterItIsInTheNextFile)
{
    std::filesystem::remove(folder_.path("h"));
    answer(4, "m2");
    decide(4, true);
    pass(2s);
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::passed));
    EXPECT_THAT(file().open_checks(), IsEmpty());
}

TEST_F(DisplacementTest, WithoutAFolderItWaitsForOne)
{
    std::filesystem::create_directory(folder_.path("disk"));
    kill();
    log_.clear();
    const Settings settings{folder_.path("disk/h"), folder_.path("modules"), folder_.path("life"), limits_,
                            300s};
    metrics_ = std::make_unique<Metrics>();
    recorder_ = std::make_unique<Recorder>(
        settings, *metrics_, [this](const std::string &text) { log_.push_back(text); }, now_);
    listen();
    std::filesystem::rename(folder_.path("disk"), folder_.path("gone"));
    pass(2s);
    plug(5);
    ask(5);
    deny(5);
    pass(2s);
    EXPECT_THAT(log_, Contains(HasSubstr("its folder must exist and be writable; retrying; kept in memory")));
    std::filesystem::create_directory(folder_.path("disk"));
    pass(2s);
    EXPECT_THAT(log_.back(), "the history is written again");
    const history::Reader next(folder_.path("disk/h"));
    EXPECT_THAT(next.decisions(), SizeIs(1));
    ASSERT_THAT(next.gaps({}, {}), SizeIs(1));
    EXPECT_EQ(next.gaps({}, {})[0].why, "the history was deleted or moved");
}

// An operator puts a copy of an hour ago in its place: what it has as open ended since, one known, one not.
TEST_F(DisplacementTest, AnOlderHistoryInItsPlaceIsContinued)
{
    plug(5);
    ask(5);
    recorder_->flush(now_);
    history::Database(folder_.path("h"), history::Database::Access::write)
        .run("PRAGMA wal_checkpoint(TRUNCATE)");
    std::filesystem::copy(folder_.path("h"), folder_.path("copy"));
    history::Database(folder_.path("copy"), history::Database::Access::write)
        .run("UPDATE open_checks SET request = 'of another' WHERE slotid = 5;"
             "INSERT INTO gaps (from_at, why) VALUES (1700049600000, 'the store was away')");
    std::filesystem::remove(folder_.path("copy-wal"));
    const history::Time copied = *file().alive_at();
    pass(3600s);
    answer(4, "m2");
    decide(4, true);
    note_service("1700049700000 exit exited 77");
    recorder_->store_lost(1, now_);
    pass(1s);
    std::filesystem::rename(folder_.path("copy"), folder_.path("h"));
    pass(1s);
    EXPECT_THAT(log_, Contains(HasSubstr("the history was replaced and is opened again")));
    EXPECT_THAT(outcomes(), ElementsAre(Outcome::denied, Outcome::passed, Outcome::unseen));
    EXPECT_EQ(file().decisions()[1].decided_at, noon + 3601s) << "as it was seen";
    ASSERT_THAT(file().open_checks(), SizeIs(1));
    EXPECT_EQ(file().open_checks()[0].card.position.slotid, 5);
    EXPECT_THAT(file().life({}, {}), SizeIs(2)) << "each once";
    std::vector<history::Gap> gaps = file().gaps({}, {});
    ASSERT_THAT(gaps, SizeIs(3));
    EXPECT_EQ(gaps[0].until, copied) << "it lasted when the copy was made";
    EXPECT_EQ(gaps[1].why, "the history was replaced");
    EXPECT_EQ(gaps[1].from, copied);
    EXPECT_EQ(gaps[1].until, now_);
    EXPECT_EQ(gaps[2].until, std::nullopt) << "the store is away";
    recorder_->store_returned(now_);
    recorder_->snapshot_done(1, now_);
    EXPECT_EQ(file().gaps({}, {})[2].until, now_);
}

TEST_F(DisplacementTest, AFileInItsPlaceIsNotReported)
{
    for (int i = 0; i < 20; ++i) {
        pass(2s);
        plug(3);
    }
    EXPECT_THAT(file().gaps({}, {}), IsEmpty());
    EXPECT_THAT(log_, Not(Contains(HasSubstr("opened again"))));
}

} // namespace recorder
