// The recorder's end of the file: other users, damage, kills, full disks, gaps and notes.
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>

#include "database.h"
#include "history_fixture.h"
#include "unit/private_view.h"

namespace history
{

namespace
{

using WriterTest = HistoryTest;
using Room = std::function<bool(int)>;

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

std::string content_of(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

// A mistyped path must cost nobody his file.
TEST_F(WriterTest, FilesOfOthersStayAsTheyAreWithNothingBesideThem)
{
    run_sql("CREATE TABLE recipes (name)");
    const std::string before = content_of(path());
    EXPECT_THAT(message_of([this] { writer(); }), HasSubstr("left alone"));
    EXPECT_EQ(content_of(path()), before);
    EXPECT_THAT(names(), ElementsAre("history.sqlite"));

    std::ofstream(path(), std::ios::trunc) << "root:x:0:0:root:/root:/bin/sh\n";
    EXPECT_EQ(message_of([this] { writer(); }),
              path() + " exists and is not a history; left alone: name another file, or move it away");
    EXPECT_EQ(content_of(path()), "root:x:0:0:root:/root:/bin/sh\n");
    EXPECT_THAT(names(), ElementsAre("history.sqlite"));
}

TEST_F(WriterTest, OneThatIsNoDatabaseAnyMoreIsMovedAsideAndToldOf)
{
    writer()->add(decision_at(noon));
    std::ofstream(path(), std::ios::trunc) << std::string(5000, 'x');
    EXPECT_THAT(message_of([this] { Reader reader(path()); }), HasSubstr("file is not a database"));
    writer()->add(decision_at(noon));
    EXPECT_THAT(Reader(path()).decisions(), SizeIs(1));
    const std::string aside = path() + ".damaged-1700000000000";
    EXPECT_EQ(std::filesystem::file_size(aside), 5000U);
    EXPECT_THAT(log_, ElementsAre(HasSubstr("file is not a database; it was moved to " + aside)));
}

TEST_F(WriterTest, DamageInsideIsNoticed)
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
    EXPECT_THAT(log_, ElementsAre(HasSubstr("a new history begins")));
}

TEST_F(WriterTest, AKillInMidWriteCostsNothingThatWasWritten)
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
    EXPECT_THAT(log_, IsEmpty());
    recorder->add(decision_at(noon));
}

TEST_F(WriterTest, ALockedFileIsAnErrorAndChangesNothing)
{
    const auto recorder = writer();
    recorder->add(decision_at(noon));
    Database other(path(), Database::Access::write);
    const Transaction locked(other);
    EXPECT_THAT(message_of([&] { recorder->add(decision_at(noon)); }), HasSubstr("database is locked"));
    EXPECT_THAT(Reader(path()).decisions(), SizeIs(1));
}

TEST_F(WriterTest, AFullDiskIsAnErrorAndWhatFollowsIsWrittenAgain)
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
TEST_F(WriterTest, ADiskWithoutRoomForANewFileIsNoReasonToGiveUp)
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

TEST_F(WriterTest, GapsThatNobodyEndedEndWhenTheRecorderWasLastAlive)
{
    auto recorder = writer();
    recorder->end_gap(recorder->begin_gap(noon, "the store was away"), noon + 1s);
    recorder->begin_gap(noon + 10s, "the store was away");
    EXPECT_EQ(Reader(path()).gaps({}, {}).at(1).until, std::nullopt);
    recorder->alive(noon + 15s);
    recorder.reset();
    recorder = writer(noon + 60s);
    EXPECT_EQ(recorder->last_alive(), noon + 15s);
    const Reader reader(path());
    const std::vector<Gap> gaps = reader.gaps({}, {});
    ASSERT_THAT(gaps, SizeIs(2));
    EXPECT_EQ(gaps[0].until, noon + 1s);
    EXPECT_EQ(gaps[0].why, "the store was away");
    EXPECT_EQ(gaps[1].until, noon + 15s);
    EXPECT_THAT(reader.gaps(noon + 2s, noon + 10s), IsEmpty());
    EXPECT_THAT(reader.gaps(noon + 12s, noon + 13s), SizeIs(1));
}

TEST_F(WriterTest, AGapIsNeverShorterThanNothing)
{
    const auto recorder = writer();
    recorder->add_gap({noon, noon - 1h, "a clock was set back"});
    const std::vector<Gap> gaps = Reader(path()).gaps({}, {});
    ASSERT_THAT(gaps, SizeIs(1));
    EXPECT_EQ(gaps[0].until, noon);
}

TEST_F(WriterTest, TheEndOfTheLastGapIsKnown)
{
    const auto file = writer();
    EXPECT_EQ(file->last_gap_end(), std::nullopt);
    const int64_t lasting = file->begin_gap(noon, "the store was away");
    EXPECT_EQ(file->last_gap_end(), std::nullopt);
    file->end_gap(lasting, noon + 5s);
    EXPECT_EQ(file->last_gap_end(), noon + 5s);
    file->add_gap({noon - 10s, noon - 9s, "the recorder was not running"});
    EXPECT_EQ(file->last_gap_end(), noon + 5s);
}

TEST_F(WriterTest, TheDaemonsLifeWithTheNoteOfItsLastEvent)
{
    auto recorder = writer();
    EXPECT_EQ(recorder->last_alive(), std::nullopt);
    EXPECT_EQ(recorder->life_note(), "");
    recorder->add_life({noon, true, 42, "", ""}, "first");
    EXPECT_EQ(recorder->life_note(), "first");
    recorder->add_life({noon + 1s, false, 0, "exited", "77"}, "second");
    recorder.reset();
    recorder = writer(noon + 1h);
    EXPECT_EQ(recorder->life_note(), "second");
    const Reader reader(path());
    const std::vector<LifeEvent> life = reader.life({}, {});
    ASSERT_THAT(life, SizeIs(2));
    EXPECT_TRUE(life[0].is_start);
    EXPECT_EQ(life[0].pid, 42);
    EXPECT_EQ(life[1].status, "77");
    EXPECT_THAT(reader.life(noon + 1s, {}), SizeIs(1));
    EXPECT_EQ(reader.begun_at(), noon);
    EXPECT_EQ(reader.alive_at(), std::nullopt);
}

TEST_F(WriterTest, AnEventOfTheDaemonsLifeIsNotThereWithoutItsNote)
{
    const auto recorder = writer();
    recorder->add_life({noon, true, 42, "", ""}, "first");
    Database(path(), Database::Access::write)
        .run("CREATE TRIGGER refusing BEFORE INSERT ON notes BEGIN SELECT RAISE(ABORT, 'no'); END");
    EXPECT_THROW(recorder->add_life({noon + 1s, false, 0, "exited", "77"}, "second"), Error);
    EXPECT_EQ(recorder->life_note(), "first");
    EXPECT_THAT(Reader(path()).life({}, {}), SizeIs(1));
}

TEST_F(WriterTest, TheModulesAreRemembered)
{
    EXPECT_EQ(writer()->modules_note(), std::nullopt);
    for (const std::vector<std::string> &modules :
         std::vector<std::vector<std::string>>{{"m1", "b c", "\xff|,", "m1"}, {"one"}, {}}) {
        for (const char *daemon : {"", "a4"}) {
            const Modules note{modules, daemon};
            writer()->set_modules_note(note);
            EXPECT_EQ(writer()->modules_note(), note);
        }
    }
}

TEST_F(WriterTest, ADamagedFileThatCannotBeMovedAsideIsLeftAlone)
{
    writer()->add(decision_at(noon));
    std::ofstream(path(), std::ios::trunc) << std::string(5000, 'x');
    std::filesystem::create_directories(path() + ".damaged-1700000000000/in the way");
    EXPECT_THAT(message_of([this] { writer(); }), HasSubstr("; it cannot be moved aside: Is a directory"));
    EXPECT_EQ(content_of(path()), std::string(5000, 'x'));
    EXPECT_THAT(log_, IsEmpty());
}

} // namespace history
