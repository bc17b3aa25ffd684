// SQLite with lifetimes and exceptions.
#include "database.h"

#include "history_fixture.h"

namespace history
{

namespace
{

class DatabaseTest : public HistoryTest
{
protected:
    DatabaseTest() { database_.run("CREATE TABLE things (id INTEGER PRIMARY KEY, value)"); }
    [[nodiscard]] int64_t count() const { return database_.number("SELECT count(*) FROM things"); }

    Database database_{path(), Database::Access::write};
};

Error::Kind kind_of(const std::function<void()> &action)
{
    try {
        action();
    } catch (const Error &error) {
        return error.is_damaged()  ? Error::Kind::damaged
               : error.will_pass() ? Error::Kind::passing
                                   : Error::Kind::refused;
    }
    throw std::logic_error("nothing was thrown");
}

} // namespace

TEST_F(DatabaseTest, ValuesAreReadAsTheyWereBound)
{
    Statement insert(database_, "INSERT INTO things (value) VALUES (?)");
    insert.with(int64_t{1} << 40).run();
    insert.with(std::string("a\0b", 3)).run();
    insert.with(noon).run();
    insert.with(std::optional<int32_t>{}).run();
    insert.with(true).run();
    insert.with("text").run();
    EXPECT_EQ(database_.last_id(), 6);
    Statement rows(database_, "SELECT value FROM things ORDER BY id");
    ASSERT_TRUE(rows.step());
    EXPECT_EQ(rows.number(0), int64_t{1} << 40);
    ASSERT_TRUE(rows.step());
    EXPECT_EQ(rows.text(0), std::string("a\0b", 3));
    ASSERT_TRUE(rows.step());
    EXPECT_EQ(rows.time(0), noon);
    EXPECT_FALSE(rows.is_null(0));
    ASSERT_TRUE(rows.step());
    EXPECT_TRUE(rows.is_null(0));
    EXPECT_EQ(rows.text(0), "");
    EXPECT_EQ(rows.number(0), 0);
    ASSERT_TRUE(rows.step());
    EXPECT_EQ(rows.small(0), 1);
    ASSERT_TRUE(rows.step());
    EXPECT_EQ(rows.text(0), "text");
    EXPECT_FALSE(rows.step());
}

TEST_F(DatabaseTest, ATransactionThatIsNotCommittedIsUndone)
{
    {
        const Transaction transaction(database_);
        database_.run("INSERT INTO things VALUES (1, 'a')");
    }
    EXPECT_EQ(count(), 0);
    {
        Transaction transaction(database_);
        database_.run("INSERT INTO things VALUES (1, 'a')");
        transaction.commit();
    }
    EXPECT_EQ(count(), 1);
}

TEST_F(DatabaseTest, AFailureNamesTheFileAndWhetherItMayPass)
{
    EXPECT_THAT(message_of([this] { database_.run("DELETE FROM others"); }),
                "cannot write the history " + path() + ": no such table: others");
    EXPECT_EQ(kind_of([this] { database_.run("DELETE FROM others"); }), Error::Kind::refused);
    EXPECT_THAT(message_of([this] { Statement(database_, "SELECT"); }),
                HasSubstr("cannot read the history "));
    const Database other(path(), Database::Access::write);
    const Transaction held(other);
    EXPECT_EQ(kind_of([this] { database_.run("DELETE FROM things"); }), Error::Kind::passing);
    const std::string rubbish = folder_ / "rubbish";
    std::ofstream(rubbish) << std::string(5000, 'x');
    const Database damaged(rubbish, Database::Access::read);
    EXPECT_EQ(kind_of([&] { (void)damaged.number("SELECT count(*) FROM sqlite_master"); }),
              Error::Kind::damaged);
}

TEST_F(DatabaseTest, OnlyAWriterMakesOrChangesAFile)
{
    const std::string missing = folder_ / "missing";
    EXPECT_THAT(message_of([&] { Database(missing, Database::Access::read); }),
                HasSubstr("cannot open the history " + missing + ": unable to open database file"));
    EXPECT_FALSE(std::filesystem::exists(missing));
    const Database reader(path(), Database::Access::read);
    EXPECT_EQ(reader.path(), path());
    EXPECT_THAT(message_of([&] { reader.run("INSERT INTO things VALUES (1, 'a')"); }), HasSubstr("readonly"));
    EXPECT_EQ(reader.number("SELECT value FROM things"), 0) << "there is no row";
}

TEST_F(DatabaseTest, AnyNameIsANameOfAFile)
{
    const std::string odd = folder_ / "a?b#c%20 d";
    Database(odd, Database::Access::write).run("CREATE TABLE a (x)");
    EXPECT_TRUE(std::filesystem::exists(odd));
    EXPECT_EQ(Database(odd, Database::Access::immutable).number("SELECT count(*) FROM sqlite_master"), 1);
}

TEST_F(DatabaseTest, AValueWithoutAParameterIsAnError)
{
    const std::string message = "cannot use the history " + path() + ": column index out of range";
    Statement none(database_, "SELECT 1");
    EXPECT_EQ(message_of([&] { none.with(int64_t{1}); }), message);
    EXPECT_EQ(message_of([&] { none.with("text"); }), message);
    EXPECT_EQ(message_of([&] { none.with(std::optional<Time>{}); }), message);
}

} // namespace history
