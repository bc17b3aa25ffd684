// The file's form, in versions.
#include <array>

#include "admission/words.h"
#include "database.h"
#include "history_fixture.h"
#include "schema.h"

namespace history
{

namespace
{

using SchemaTest = HistoryTest;

} // namespace

TEST_F(SchemaTest, ANewerVersionIsRefusedAndLeftAlone)
{
    writer()->add(decision_at(noon));
    run_sql("PRAGMA user_version = 999");
    EXPECT_THAT(message_of([this] { writer(); }), HasSubstr("has version 999, this program knows up to 3"));
    EXPECT_THAT(message_of([this] { Reader reader(path()); }), HasSubstr("has version 999"));
    run_sql("PRAGMA user_version = 3");
    EXPECT_THAT(Reader(path()).decisions(), SizeIs(1));
    EXPECT_THAT(log_, IsEmpty());
}

TEST_F(SchemaTest, AnotherProgramsDatabaseIsRefusedAndLeftAlone)
{
    run_sql("CREATE TABLE recipes (name)");
    EXPECT_THAT(message_of([this] { writer(); }), HasSubstr("not a history of cg_recorderd"));
    EXPECT_THAT(message_of([this] { Reader reader(path()); }), HasSubstr("not a history of cg_recorderd"));
    EXPECT_EQ(Database(path(), Database::Access::read).number("SELECT count(*) FROM recipes"), 0);
}

TEST_F(SchemaTest, AnOlderVersionIsBroughtUpToDateStepByStepAndKeepsItsRows)
{
    const std::array<Migration, 2> steps{"CREATE TABLE a (x); INSERT INTO a VALUES (5)",
                                         "ALTER TABLE a ADD COLUMN y DEFAULT 6"};
    const Database database(path(), Database::Access::write);
    bring_up_to_date(database, std::span(steps).first(1));
    EXPECT_EQ(database.number("PRAGMA user_version"), 1);
    bring_up_to_date(database, steps);
    EXPECT_EQ(database.number("PRAGMA user_version"), 2);
    EXPECT_EQ(database.number("SELECT x + y FROM a"), 11);
    bring_up_to_date(database, steps); // nothing to do
    EXPECT_EQ(database.number("SELECT count(*) FROM a"), 1);
}

TEST_F(SchemaTest, AStepThatFailsLeavesTheOlderVersion)
{
    const std::array<Migration, 2> steps{"CREATE TABLE a (x)", "CREATE TABLE b (x); CREATE TABLE a (x)"};
    const Database database(path(), Database::Access::write);
    EXPECT_THAT(message_of([&] { bring_up_to_date(database, steps); }), HasSubstr("already exists"));
    EXPECT_EQ(database.number("PRAGMA user_version"), 1);
    EXPECT_EQ(database.number("SELECT count(*) FROM sqlite_master"), 1);
}

TEST_F(SchemaTest, AChecksRowOfTheFirstVersionWaitsForThoseItNames)
{
    {
        const Database database(path(), Database::Access::write);
        bring_up_to_date(database, migrations().first(1));
        database.run("INSERT INTO open_checks VALUES (7, 1, 3, 0, 'fan', '', 3, 17, 259, 1259, 1, NULL);"
                     "INSERT INTO open_waiting VALUES (7, 0, 'm1')");
    }
    EXPECT_THAT(message_of([this] { Reader reader(path()); }), HasSubstr("start the present cg_recorderd"));
    writer();
    const std::vector<OpenCheck> checks = Reader(path()).open_checks();
    ASSERT_THAT(checks, SizeIs(1));
    EXPECT_THAT(checks[0].waiting_for, ElementsAre("m1"));
    EXPECT_FALSE(checks[0].any_will_do);
}

TEST_F(SchemaTest, AFileOfVersion2OpensWithAllThatIsInIt)
{
    std::ifstream dump(HISTORY_VERSION_2);
    run_sql({std::istreambuf_iterator<char>(dump), {}});
    EXPECT_THAT(message_of([this] { Reader reader(path()); }), HasSubstr("start the present cg_recorderd"));
    const auto recorder = writer(noon);
    EXPECT_THAT(log_, IsEmpty());
    EXPECT_EQ(recorder->modules_note(), (Modules{{"m2", "m1"}, ""}));
    EXPECT_EQ(recorder->life_note(), "1795325231860 start 44");
    const Reader reader(path());
    std::string outcomes;
    for (const Decision &decision : reader.decisions()) {
        outcomes += decision.card.position.text() + ' ' + admission::word_of(decision.outcome) + ' ' +
                    decision.decider + '\n';
    }
    // The last one is the oldest: its recorder's clock was set back.
    EXPECT_EQ(outcomes, "1/9/0 unasked \n1/8/0 unseen \n1/6/0 exempt \n1/3/0 passed m2\n1/4/0 denied m2\n"
                        "1/5/0 withdrawn \n1/9/0 silence \n1/2/0 silence \n1/2/0 denied m1\n1/6/0 exempt \n"
                        "1/7/0 withdrawn \n");
    const Decision cut_off = reader.decisions({.position = Position{1, 7, 0}}).at(0);
    EXPECT_TRUE(admission::was_cut_off(cut_off));
    EXPECT_THAT(cut_off.silent, ElementsAre("m2"));
    ASSERT_THAT(cut_off.answers, SizeIs(1));
    EXPECT_EQ(cut_off.answers[0].took, 910ms);
    EXPECT_THAT(reader.last_decisions(), SizeIs(8));
    const std::vector<OpenCheck> open = reader.open_checks();
    ASSERT_THAT(open, SizeIs(6));
    EXPECT_EQ(open[5].card.position, (Position{1, 10, 0}));
    EXPECT_THAT(open[5].waiting_for, ElementsAre("m1"));
    EXPECT_THAT(open[5].answers, SizeIs(1));
    EXPECT_EQ(open[5].request.origin, store::Origin{}) << "that version did not say which write it was";
    EXPECT_EQ(cut_off.request.origin, store::Origin{});
    EXPECT_EQ(cut_off.result.origin, store::Origin{});
    EXPECT_THAT(reader.gaps({}, {}), SizeIs(1));
    EXPECT_THAT(reader.life({}, {}), SizeIs(5));
    const std::vector<ModuleStatistics> modules = reader.module_statistics({});
    ASSERT_THAT(modules, SizeIs(2));
    EXPECT_EQ(modules[0].answers, 3) << "the late one counts once";
    EXPECT_EQ(modules[1].silences, 2);
}

TEST_F(SchemaTest, BringingUpToDateChangesNothingOfANewerVersion)
{
    writer();
    run_sql("PRAGMA user_version = 999");
    const Database database(path(), Database::Access::write);
    EXPECT_THAT(message_of([&] { bring_up_to_date(database); }), HasSubstr("has version 999"));
    EXPECT_EQ(database.number("PRAGMA user_version"), 999);
}

} // namespace history
