// The history for its readers: what they are allowed to see, and when.
#include <unistd.h>

#include "database.h"
#include "history_fixture.h"

namespace history
{

namespace
{

using ReaderTest = HistoryTest;

} // namespace

TEST_F(ReaderTest, AMissingOneSaysWhoWritesIt)
{
    EXPECT_EQ(message_of([this] { Reader reader(path()); }),
              "no history at " + path() + "; cg_recorderd writes it");
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(ReaderTest, AnUnreadableOneIsNoEmptyOne)
{
    writer();
    namespace fs = std::filesystem;
    fs::permissions(folder_, fs::perms::owner_all | fs::perms::others_exec);
    fs::permissions(path(), geteuid() == 0 ? fs::perms::owner_all : fs::perms::none);
    EXPECT_EQ(decisions_seen_by_others(), 101);
}

TEST_F(ReaderTest, OthersReadItWhileItIsWrittenAndAfterwards)
{
    auto recorder = writer();
    recorder->add(decision_at(noon));
    open_to_others();
    EXPECT_EQ(decisions_seen_by_others(), 1);
    recorder->add(decision_at(noon + 1s));
    recorder.reset();
    EXPECT_EQ(decisions_seen_by_others(), 2);
    std::filesystem::remove(path() + "-wal");
    std::filesystem::remove(path() + "-shm");
    EXPECT_EQ(decisions_seen_by_others(), 2); // a copy, say
}

TEST_F(ReaderTest, WhatIsWrittenWhileAReaderIsOpenIsSeenByIt)
{
    const auto recorder = writer();
    const Reader reader(path());
    EXPECT_THAT(reader.decisions(), IsEmpty());
    recorder->add(decision_at(noon));
    EXPECT_THAT(reader.decisions(), SizeIs(1));
}

} // namespace history
