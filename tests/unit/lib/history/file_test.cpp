// The file itself: versions, damage, other users, kills, limits.
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "database.h"
#include "history_fixture.h"
#include "schema.h"
#include "unit/private_view.h"

namespace history
{

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr uid_t nobody = 65534;

using Room = std::function<bool(int)>;

std::string message_of(const std::function<void()> &action)
{
    try {
        action();
    } catch (const Error &error) {
        return error.what();
    }
    return "nothing was thrown";
}

std::string content_of(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Runs `body` in a child process, as a user without rights when we are root. Returns its exit status, or 128
// and the signal.
int in_child(const std::function<int()> &body)
{
    const pid_t pid = fork();
    if (pid == 0) {
        const bool stripped = geteuid() != 0 || (setgid(nobody) == 0 && setuid(nobody) == 0);
        _exit(stripped ? body() : 100);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Runs `body` in a child process in which this folder is a disk of its own; `room` is called with how many
// files it may hold, itself included. Returns the exit status, 100 when there can be no such disk.
int in_child_with_disk(const std::string &folder, const std::function<int(const Room &)> &body)
{
    const auto mounted = [&](int files, unsigned long flags) {
        const std::string options = "size=4m,nr_inodes=" + std::to_string(files);
        return mount("tmpfs", folder.c_str(), "tmpfs", flags, options.c_str()) == 0;
    };
    const pid_t pid = fork();
    if (pid == 0) {
        const bool has_disk = testing_platform::enter_private_view() && mounted(1, 0);
        _exit(has_disk ? body([&](int files) { return mounted(files, MS_REMOUNT); }) : 100);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

class HistoryFile : public HistoryTest
{
protected:
    void run_sql(const std::string &sql) const { Database(path(), Database::Access::write).run(sql.c_str()); }
    [[nodiscard]] std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        for (const auto &entry : std::filesystem::directory_iterator(folder_)) {
            found.push_back(entry.path().filename());
        }
        return found;
    }
    // For others to read, without the right to write anything.
    void open_to_others() const
    {
        namespace fs = std::filesystem;
        fs::permissions(folder_, fs::perms::owner_all | fs::perms::others_read | fs::perms::others_exec);
        for (const auto &entry : fs::directory_iterator(folder_)) {
            fs::permissions(entry.path(),
                            fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_read);
        }
    }
    [[nodiscard]] int decisions_seen_by_others() const
    {
        return in_child([this] {
            try {
                return static_cast<int>(Reader(path()).decisions().size());
            } catch (const Error &error) {
                fprintf(stderr, "%s\n", error.what());
                return 101;
            }
        });
    }
};

} // namespace

TEST_F(HistoryFile, AMissingOneSaysWhoWritesIt)
{
    EXPECT_EQ(message_of([this] { Reader reader(path()); }),
              "no history at " + path() + "; cg_recorderd writes it");
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(HistoryFile, AnUnreadableOneIsNoEmptyOne)
{
    writer();
    namespace fs = std::filesystem;
    fs::permissions(folder_, fs::perms::owner_all | fs::perms::others_exec);
    fs::permissions(path(), geteuid() == 0 ? fs::perms::owner_all : fs::perms::none);
    EXPECT_EQ(decisions_seen_by_others(), 101);
}

TEST_F(HistoryFile, ANewerVersionIsRefusedAndLeftAlone)
{
    writer()->add(decision_at(noon));
    run_sql("PRAGMA user_version = 999");
    EXPECT_THAT(message_of([this] { writer(); }), HasSubstr("has version 999, this program knows up to 2"));
    EXPECT_THAT(message_of([this] { Reader reader(path()); }), HasSubstr("has version 999"));
    run_sql("PRAGMA user_version = 2");
    EXPECT_THAT(Reader(path()).decisions(), SizeIs(1));
    EXPECT_THAT(told_, IsEmpty());
}

TEST_F(HistoryFile, AnotherProgramsDatabaseIsRefusedAndLeftAlone)
{
    run_sql("CREATE TABLE recipes (name)");
    EXPECT_THAT(message_of([this] { writer(); }), HasSubstr("no history of cg_recorderd"));
    EXPECT_THAT(message_of([this] { Reader reader(path()); }), HasSubstr("no history of cg_recorderd"));
    EXPECT_EQ(Database(path(), Database::Access::read).number("SELECT count(*) FROM recipes"), 0);
}

// A mistyped path must cost nobody his file.
TEST_F(HistoryFile, FilesOfOthersStayAsTheyAreWithNothingBesideThem)
{
    run_sql("CREATE TABLE recipes (name)");
    const std::string before = content_of(path());
    EXPECT_THAT(message_of([this] { writer(); }), HasSubstr("it is left alone"));
    EXPECT_EQ(content_of(path()), before);
    EXPECT_THAT(names(), ElementsAre("history.sqlite"));

    std::ofstream(path(), std::ios::trunc) << "root:x:0:0:root:/root:/bin/sh\n";
    EXPECT_EQ(message_of([this] { writer(); }),
              path() + " is there, and is no history; it is left alone: name another file, or move it away");
    EXPECT_EQ(content_of(path()), "root:x:0:0:root:/root:/bin/sh\n");
    EXPECT_THAT(names(), ElementsAre("history.sqlite"));
}

TEST_F(HistoryFile, AnOlderVersionIsBroughtUpToDateStepByStepAndKeepsItsRows)
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

TEST_F(HistoryFile, AChecksRowOfTheFirstVersionWaitsForThoseItNames)
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

TEST_F(HistoryFile, AStepThatFailsLeavesTheOlderVersion)
{
    const std::array<Migration, 2> steps{"CREATE TABLE a (x)", "CREATE TABLE b (x); CREATE TABLE a (x)"};
    const Database database(path(), Database::Access::write);
    EXPECT_THAT(message_of([&] { bring_up_to_date(database, steps); }), HasSubstr("already exists"));
    EXPECT_EQ(database.number("PRAGMA user_version"), 1);
    EXPECT_EQ(database.number("SELECT count(*) FROM sqlite_master"), 1);
}

TEST_F(HistoryFile, OneThatIsNoDatabaseAnyMoreIsMovedAsideAndToldOf)
{
    writer()->add(decision_at(noon));
    std::ofstream(path(), std::ios::trunc) << std::string(5000, 'x');
    EXPECT_THAT(message_of([this] { Reader reader(path()); }), HasSubstr("file is not a database"));
    writer()->add(decision_at(noon));
    EXPECT_THAT(Reader(path()).decisions(), SizeIs(1));
    const std::string aside = path() + ".damaged-1700000000000";
    EXPECT_EQ(std::filesystem::file_size(aside), 5000U);
    EXPECT_THAT(told_, ElementsAre(HasSubstr("file is not a database; it was moved to " + aside)));
}

TEST_F(HistoryFile, DamageInsideIsNoticed)
{
    {
        const auto recorder = writer();
        for (int i = 0; i < 500; ++i) {
            recorder->add(decision_at(noon + i * 1s));
        }
    }
    const auto size = static_cast<std::streamoff>(std::filesystem::file_size(path()));
    std::fstream file(path(), std::ios::in | std::ios::out);
    file.seekp(size / 2).write(std::string(20'000, 'x').data(), 20'000);
    file.close();
    EXPECT_THAT(Reader(writer() ? path() : "").decisions(), IsEmpty());
    EXPECT_THAT(told_, ElementsAre(HasSubstr("a new history begins")));
}

TEST_F(HistoryFile, OneWriterAtATime)
{
    const auto first = writer();
    EXPECT_EQ(message_of([this] { writer(); }),
              "cannot write the history " + path() + ": another process does so");
}

TEST_F(HistoryFile, AFolderThatIsNotThereIsNamed)
{
    folder_ /= "missing";
    EXPECT_THAT(message_of([this] { writer(); }), HasSubstr("history.sqlite.lock: No such file"));
    folder_ = folder_.parent_path();
}

TEST_F(HistoryFile, OthersReadItWhileItIsWrittenAndAfterwards)
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

TEST_F(HistoryFile, AKillInMidWriteCostsNothingThatWasWritten)
{
    std::array<int, 2> pipe_ends{};
    ASSERT_EQ(pipe(pipe_ends.data()), 0);
    const pid_t pid = fork();
    if (pid == 0) {
        const auto recorder = writer();
        for (int i = 0;; ++i) {
            recorder->add(decision_at(noon + i * 1s));
            if (write(pipe_ends[1], "x", 1) != 1) {
                _exit(1);
            }
        }
    }
    close(pipe_ends[1]);
    constexpr std::size_t written = 50;
    for (char c = 0; auto i : std::array<int, written>{}) {
        ASSERT_EQ(read(pipe_ends[0], &c, 1), 1) << i;
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    close(pipe_ends[0]);
    open_to_others();
    EXPECT_GE(decisions_seen_by_others(), 50);
    EXPECT_GE(Reader(path()).decisions().size(), written);
    for (const Decision &decision : Reader(path()).decisions()) {
        EXPECT_THAT(decision.answers, SizeIs(2)); // whole, or not at all
    }
    const auto recorder = writer();
    EXPECT_THAT(told_, IsEmpty());
    recorder->add(decision_at(noon));
}

TEST_F(HistoryFile, ALockedFileIsAnErrorAndChangesNothing)
{
    const auto recorder = writer();
    recorder->add(decision_at(noon));
    Database other(path(), Database::Access::write);
    const Transaction locked(other);
    EXPECT_THAT(message_of([&] { recorder->add(decision_at(noon)); }), HasSubstr("database is locked"));
    EXPECT_THAT(Reader(path()).decisions(), SizeIs(1));
}

TEST_F(HistoryFile, AFullDiskIsAnErrorAndWhatFollowsIsWrittenAgain)
{
    const auto recorder = writer();
    recorder->add(decision_at(noon));
    const auto log_size = std::filesystem::file_size(path() + "-wal");
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    const rlimit full{log_size, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    const std::string message = message_of([&] { recorder->add(decision_at(noon + 1s)); });
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, handler);
    EXPECT_THAT(message, HasSubstr("cannot write the history " + path() + ": "));
    recorder->add(decision_at(noon + 2s));
    const std::vector<Decision> kept = Reader(path()).decisions();
    ASSERT_THAT(kept, SizeIs(2));
    EXPECT_EQ(kept[1].decided_at, noon + 2s);
}

// Its lock file, the file itself, and those that SQLite keeps beside it are made one after the other.
TEST_F(HistoryFile, ADiskWithoutRoomForANewFileIsNoReasonToGiveUp)
{
    const auto opens_at_last = [this](const Room &room) {
        constexpr int most = 10;
        for (int files = 1; files <= most; ++files) {
            if (!room(files)) {
                return 100;
            }
            try {
                writer()->add(decision_at(noon));
                return files; // no sooner than all of them can be there
            } catch (const Error &error) {
                if (!error.will_pass()) {
                    fprintf(stderr, "room for %d: %s\n", files, error.what());
                    return most + files;
                }
            }
        }
        return most;
    };
    EXPECT_EQ(in_child_with_disk(folder_, opens_at_last), 5);
}

TEST_F(HistoryFile, AgeIsLimitedButForTheLastOfEachPosition)
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

TEST_F(HistoryFile, SizeIsLimitedAndTheFileShrinks)
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
