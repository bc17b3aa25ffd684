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

TEST_F(NotesTest, NamesAreThoseOfFiles)
{
    for (const std::vector<std::string> &names : {std::vector<std::string>(), {"m1"}, {"m1", " a,b\n"}}) {
        EXPECT_EQ(parse_names(names_text(names)), names);
    }
    EXPECT_EQ(names_text({"m1", "m2"}), "/m1/m2");
    EXPECT_EQ(names_text({}), "/");
    EXPECT_THAT(parse_names(""), IsEmpty());
}

TEST_F(NotesTest, WhatWasRegisteredBeforeIsNotForgottenWithoutModules)
{
    EXPECT_THAT(read_registered_before(database_), IsEmpty());
    write_note(database_, modules_note_name, "/m1/m2"); // as a recorder of before did
    EXPECT_THAT(read_registered_before(database_), ElementsAre("m1", "m2"));
    const auto recorder = writer();
    recorder->set_modules_note({});
    recorder->set_modules_note({});
    EXPECT_THAT(recorder->registered_before(), ElementsAre("m1", "m2"));
    EXPECT_THAT(Reader(path()).registered_before(), ElementsAre("m1", "m2"));
    EXPECT_THAT(recorder->modules_note()->names, IsEmpty());
    recorder->set_modules_note({{"m3"}, ""});
    recorder->set_modules_note({});
    EXPECT_THAT(recorder->registered_before(), ElementsAre("m3"));
}

TEST_F(NotesTest, ATimeIsKeptInMilliseconds)
{
    EXPECT_EQ(read_time_note(database_, alive_note), std::nullopt);
    write_time_note(database_, alive_note, noon + 1234567us);
    EXPECT_EQ(read_note(database_, alive_note), "1700000001234");
    EXPECT_EQ(read_time_note(database_, alive_note), noon + 1234ms);
}

} // namespace history
