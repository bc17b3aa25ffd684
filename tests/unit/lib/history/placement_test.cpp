// A history that somebody deletes, moves, replaces or cuts while it is written.
#include "placement.h"

#include <unistd.h>

#include <utility>

#include "history_fixture.h"

namespace history
{

namespace
{

using testing::Not;

constexpr Time later = noon + 60s;

class PlacementTest : public HistoryTest
{
protected:
    // A history with a decision in the file itself and one in its log.
    void SetUp() override
    {
        writer()->add(decision_at(noon));
        writer_ = writer();
        writer_->add(decision_at(noon + 1s, slot4));
        ASSERT_EQ(writer_->displacement(), std::nullopt);
    }
    [[nodiscard]] std::string other(const std::string &name) const { return folder_ / name; }
    // Adds some hundred decisions to the file itself. Returns its size.
    std::uintmax_t grow() const
    {
        for (int i = 0; i < 300; ++i) {
            writer_->add(decision_at(noon + i * 1ms));
        }
        run_sql("PRAGMA wal_checkpoint(TRUNCATE)");
        (void)writer_->trim({}, noon);
        return std::filesystem::file_size(path());
    }
    std::string leave()
    {
        std::string log = writer_->leave(later);
        writer_.reset();
        return log;
    }
    static std::string content_of(const std::string &path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::unique_ptr<Writer> writer_;
};

} // namespace

TEST_F(PlacementTest, AFileThatWasMovedStaysAsItIsAndItsLogIsKeptApart)
{
    const std::string moved = other("moved");
    std::filesystem::rename(path(), moved);
    EXPECT_EQ(writer_->displacement(), "was deleted or moved");
    const std::string before = content_of(moved);
    const std::string log = leave();
    EXPECT_EQ(content_of(moved), before);
    EXPECT_EQ(log, path() + ".left-1700000060000-wal");
    EXPECT_FALSE(std::filesystem::exists(path() + "-wal"));
    EXPECT_THAT(Reader(moved).decisions(), SizeIs(1));
    std::filesystem::rename(log, moved + "-wal");
    EXPECT_THAT(Reader(moved).decisions(), SizeIs(2)) << "with its log it is whole";
    writer(later);
    EXPECT_THAT(Reader(path()).decisions(), IsEmpty()) << "a new file";
}

TEST_F(PlacementTest, AFileThatWasDeletedMakesRoomForANewOne)
{
    std::filesystem::remove(path());
    EXPECT_EQ(writer_->displacement(), "was deleted or moved");
    EXPECT_EQ(leave(), path() + ".left-1700000060000-wal");
    writer_ = writer(later);
    EXPECT_EQ(writer_->displacement(), std::nullopt);
    EXPECT_EQ(writer_->last_alive(), std::nullopt);
    EXPECT_THAT(Reader(path()).decisions(), IsEmpty());
}

TEST_F(PlacementTest, AFileThatWasTakenAwayWithItsCompanionsLeavesNothing)
{
    for (const char *suffix : {"", "-wal", "-shm"}) {
        std::filesystem::rename(path() + suffix, other("moved") + suffix);
    }
    EXPECT_EQ(leave(), "");
    EXPECT_THAT(Reader(other("moved")).decisions(), SizeIs(2));
    EXPECT_FALSE(std::filesystem::exists(path())) << "until it is opened";
}

TEST_F(PlacementTest, TheLogOfOneIsNotTheLogOfTheOneInItsPlace)
{
    {
        Writer elsewhere(other("other"), noon, {});
        for (int i = 0; i < 3; ++i) {
            elsewhere.add(decision_at(noon + i * 1s));
        }
    }
    std::filesystem::remove(other("other-wal"));
    std::filesystem::rename(other("other"), path());
    EXPECT_EQ(writer_->displacement(), "was replaced");
    EXPECT_EQ(leave(), path() + ".left-1700000060000-wal");
    writer_ = writer(later);
    EXPECT_THAT(log_, IsEmpty()) << "it is in order";
    EXPECT_THAT(Reader(path()).decisions(), SizeIs(3));
}

TEST_F(PlacementTest, TheLogThatCameWithTheNextFileStaysWithIt)
{
    Writer elsewhere(other("other"), noon, {});
    elsewhere.add(decision_at(noon));
    for (const char *suffix : {"-wal", "-shm", ""}) {
        std::filesystem::rename(other("other") + suffix, path() + suffix);
    }
    EXPECT_EQ(leave(), "");
    EXPECT_THAT(Reader(path()).decisions(), SizeIs(1));
}

TEST_F(PlacementTest, AFileThatWasEmptiedIsANewOne)
{
    std::ofstream(path(), std::ios::trunc) << "";
    EXPECT_EQ(writer_->displacement(), "was cut");
    leave();
    EXPECT_EQ(std::filesystem::file_size(path()), 0U) << "nothing was written into it";
    writer_ = writer(later);
    EXPECT_THAT(log_, IsEmpty());
    EXPECT_THAT(Reader(path()).decisions(), IsEmpty());
}

TEST_F(PlacementTest, WhatIsLeftOfACutFileIsMovedAside)
{
    std::filesystem::resize_file(path(), 10'000);
    EXPECT_EQ(writer_->displacement(), "was cut");
    leave();
    writer_ = writer(later);
    EXPECT_THAT(log_, ElementsAre(HasSubstr("it was moved to " + path() + ".damaged-1700000060000")));
    EXPECT_EQ(std::filesystem::file_size(path() + ".damaged-1700000060000"), 10'000U);
}

TEST_F(PlacementTest, AFileWhoseLogWasDeletedIsCompleted)
{
    std::filesystem::remove(path() + "-wal");
    EXPECT_EQ(writer_->displacement(), "lost its log");
    EXPECT_EQ(leave(), "");
    writer_ = writer(later);
    EXPECT_EQ(writer_->displacement(), std::nullopt);
    EXPECT_THAT(Reader(path()).decisions(), SizeIs(2));
}

TEST_F(PlacementTest, GrowthIsNotedWhenTheFileIsLookedAt)
{
    const std::uintmax_t before = std::filesystem::file_size(path());
    for (int i = 0; i < 300; ++i) {
        writer_->add(decision_at(noon + i * 1ms));
    }
    run_sql("PRAGMA wal_checkpoint(TRUNCATE)");
    ASSERT_EQ(writer_->displacement(), std::nullopt);
    std::filesystem::resize_file(path(), (before + std::filesystem::file_size(path())) / 2);
    EXPECT_EQ(writer_->displacement(), "was cut");
}

TEST_F(PlacementTest, AFileThatGrewIsCutBelowWhatItHadThen)
{
    const auto at_first = std::filesystem::file_size(path());
    const auto grown = grow();
    ASSERT_GT(grown, at_first);
    std::filesystem::resize_file(path(), (at_first + grown) / 2);
    EXPECT_EQ(writer_->displacement(), "was cut");
    EXPECT_THAT(message_of([this] { (void)writer_->trim({}, later); }), Not(IsEmpty()));
    EXPECT_EQ(writer_->displacement(), "was cut") << "still";
}

TEST_F(PlacementTest, AFileThatItsWriterMadeSmallerIsInPlace)
{
    const auto grown = grow();
    while (writer_->trim({1h}, noon + 24h)) {
        ASSERT_EQ(writer_->displacement(), std::nullopt);
    }
    run_sql("PRAGMA wal_checkpoint(TRUNCATE)");
    ASSERT_LT(std::filesystem::file_size(path()), grown);
    ASSERT_EQ(writer_->displacement(), std::nullopt);
    for (int i = 0; i < 100; ++i) {
        writer_->add(decision_at(noon + i * 1ms)); // into the log: the file is smaller than what it holds
    }
    EXPECT_EQ(writer_->displacement(), std::nullopt);
}

TEST_F(PlacementTest, AFileThatAnotherProgramMadeSmallerThroughSqliteIsInPlace)
{
    const auto grown = grow();
    run_sql("DELETE FROM decisions; VACUUM; PRAGMA wal_checkpoint(TRUNCATE)");
    ASSERT_LT(std::filesystem::file_size(path()), grown);
    EXPECT_EQ(writer_->displacement(), std::nullopt);
}

TEST_F(PlacementTest, AFileBehindALinkHasItsLogWhereItIs)
{
    writer_.reset();
    std::filesystem::create_directory(other("disk"));
    for (const char *suffix : {"", "-wal"}) {
        std::filesystem::rename(path() + suffix, other("disk/file") + suffix);
    }
    std::filesystem::create_symlink(other("disk/file"), path());
    writer_ = writer();
    EXPECT_EQ(writer_->displacement(), std::nullopt);
    std::filesystem::remove(path());
    EXPECT_EQ(writer_->displacement(), "was deleted or moved");
    EXPECT_EQ(leave(), other("disk/file") + ".left-1700000060000-wal");
}

} // namespace history
