// Single values that the file keeps beside its rows.
#include "notes.h"

#include "history_fixture.h"
#include "schema.h"

namespace history
{

namespace
{

class NotesTest : public HistoryTest
{
protected:
    NotesTest() { bring_up_to_date(database_); }

    Database database_{path(), Database::Access::write};
};

} // namespace

TEST_F(NotesTest, TheLastOneOfANameStands)
{
    EXPECT_EQ(read_note(database_, "a"), "");
    write_note(database_, "a", "1");
    write_note(database_, "b", "2");
    write_note(database_, "a", "3");
    EXPECT_EQ(read_note(database_, "a"), "3");
    EXPECT_EQ(read_note(database_, "b"), "2");
}

TEST_F(NotesTest, ATimeIsKeptInMilliseconds)
{
    EXPECT_EQ(read_time_note(database_, alive_note), std::nullopt);
    write_time_note(database_, alive_note, noon + 1234567us);
    EXPECT_EQ(read_note(database_, alive_note), "1700000001234");
    EXPECT_EQ(read_time_note(database_, alive_note), noon + 1234ms);
}

} // namespace history
