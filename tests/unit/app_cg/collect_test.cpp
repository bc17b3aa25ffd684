// "collect" takes descriptors 0, 1 and 2 away for good, so each test runs it in a child of its own.
//
// The child reports through its exit status and, for a human, through the standard error that it saved
// before it lost it.
#include "app_cg_dbg/collect.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "app_cg/card_nodes.h"
#include "app_cg/check_modules.h"
#include "app_cg_dbg/debug_commands.h"
#include "fixture.h"

using namespace lines;

namespace
{

constexpr char COLLECT_FILE[] = "/data/collect/app_cg.log";
const Lines COLLECT_CALLS{"system(mkdir -p /data/collect)",
                          "open(/data/collect/app_cg.log, O_RDWR|O_CREAT, 0644)"};

// Says on the saved standard error what was not as it should be, and remembers it.
class Child
{
public:
    void expect(bool holds, const std::string &what)
    {
        if (!holds) {
            (void)dprintf(saved_error_, "%s\n", what.c_str());
            failed_ = true;
        }
    }

    void expect_equal(const std::string &actual, const std::string &expected, const std::string &what)
    {
        expect(actual == expected, what + " is:\n" + actual + "\nbut shall be:\n" + expected);
    }

    [[noreturn]] void end() const
    {
        (void)std::fflush(stdout);
        std::_Exit(failed_ ? 1 : 0);
    }

private:
    int saved_error_ = fcntl(STDERR_FILENO, F_DUPFD, 100);
    bool failed_ = false;
};

struct FileId {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const FileId &) const = default;
};

FileId id_of(int fd)
{
    struct stat status {
    };
    return fstat(fd, &status) == 0 ? FileId{status.st_dev, status.st_ino} : FileId{};
}

bool is_closed(int fd)
{
    return fcntl(fd, F_GETFD) == -1 && errno == EBADF;
}

void collect()
{
    int32_t result = -1;
    if (!recording::run_command("collect", {}, &result) || result != 0) {
        std::_Exit(3);
    }
}

// What the three dumps print at this moment.
std::string dumps()
{
    return printed([] {
        (void)app_cg_dump_wait_obj();
        (void)app_cg_show_time();
        (void)app_cg_dump_all_node();
    });
}

void register_modules(int32_t count)
{
    g_app_cg_global.wait_obj = {};
    g_app_cg_global.wait_obj.app_cg_wait_obj_num = count;
    for (int32_t i = 0; i < count; i++) {
        g_app_cg_global.wait_obj.app_cg_wait_obj_bmp |= 1U << static_cast<unsigned>(i);
        const std::string name = "module" + std::to_string(i);
        name.copy(g_app_cg_global.wait_obj.app_cg_wait_obj_name[i], APP_CG_WAIT_OBJ_NAME_LEN - 1);
    }
}

class CollectDeathTest : public DaemonTest
{
protected:
    void SetUp() override
    {
        DaemonTest::SetUp();
        ASSERT_EQ(app_cg_ssat_init(recording::context(), "app_cg"), 0);
        (void)recording::take();
        g_app_cg_global.time_run = {11, 12};
        register_modules(2);
        (void)app_cg_node_init(CardNode{}, &g_app_cg_global.card_nodes);
    }
};

[[noreturn]] void collect_once()
{
    Child child;
    (void)umask(0);
    const std::string expected = dumps();
    const FileId output = id_of(STDOUT_FILENO);
    collect();
    child.expect_equal(fake_fs::read(COLLECT_FILE), expected, "the collect file");
    child.expect(fake_fs::calls() == COLLECT_CALLS,
                 "the calls differ: " + testing::PrintToString(fake_fs::calls()));

    struct stat status {
    };
    child.expect(stat(fake_fs::host_path(COLLECT_FILE).c_str(), &status) == 0, "the file is missing");
    child.expect((status.st_mode & 0777) == 0644, "the file's mode is not 0644");
    const FileId file{status.st_dev, status.st_ino};
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        child.expect(id_of(fd) == file, "descriptor " + std::to_string(fd) + " is not the collect file");
    }
    child.expect(collect_saved_stdout > 2 && id_of(collect_saved_stdout) == output,
                 "the saved standard output is not the old one");
    child.expect(collect_fd > 2 && is_closed(collect_fd), "the file's own descriptor is not closed");
    child.end();
}

[[noreturn]] void print_after_collect()
{
    Child child;
    const std::string collected = dumps();
    const std::string times = printed([] { (void)app_cg_show_time(); });
    collect();
    child.expect(recording::run_command("show_time", {}, nullptr), "show_time is not registered");
    (void)std::fflush(stdout);
    child.expect_equal(fake_fs::read(COLLECT_FILE), collected + times, "the collect file");
    child.end();
}

// The second dump is shorter: it writes over the beginning of the first one and leaves the rest.
[[noreturn]] void collect_twice()
{
    Child child;
    const std::string first = dumps();
    collect();
    const int32_t first_saved = collect_saved_stdout;
    register_modules(0);
    std::string second;
    {
        // What it will print, without printing it into the collect file.
        const std::string two =
            "app_cg_wait_obj_num 2\napp_cg_wait_obj_bmp 0x3\nwait mod[0], name[module0]\nwait "
            "mod[1], name[module1]\n";
        child.expect(first.rfind(two, 0) == 0, "the first dump does not begin with two modules");
        second = "app_cg_wait_obj_num 0\napp_cg_wait_obj_bmp 0x0\n" + first.substr(two.size());
    }
    const std::size_t descriptors = open_descriptors();
    collect();
    child.expect_equal(fake_fs::read(COLLECT_FILE), second + first.substr(second.size()), "the collect file");
    child.expect(collect_saved_stdout != first_saved && !is_closed(first_saved),
                 "the first saved descriptor is gone");
    child.expect(open_descriptors() == descriptors + 1, "a second collect holds one descriptor more");
    child.end();
}

// A longer second dump writes over all of the first.
[[noreturn]] void collect_a_longer_dump()
{
    Child child;
    register_modules(0);
    collect();
    register_modules(2);
    g_app_cg_global.time_run = {123456, 654321};
    collect();
    const std::string text = fake_fs::read(COLLECT_FILE);
    child.expect(text.rfind("app_cg_wait_obj_num 2\n", 0) == 0, "the second dump does not begin the file");
    child.expect(text.find("app_cg run 123456:654321\r\n") != std::string::npos, "the new time is missing");
    child.expect(text.find("\napp_cg_wait_obj_num") == std::string::npos, "the first dump is still there");
    child.end();
}

[[noreturn]] void restore_alone()
{
    Child child;
    const FileId output = id_of(STDOUT_FILENO);
    collect_fd = -1;
    app_cg_collect_restore();
    child.expect(id_of(STDOUT_FILENO) == output, "a restore without a file moved standard output");
    app_cg_collect_redirect();
    (void)std::printf("buffered");
    app_cg_collect_restore();
    child.expect_equal(fake_fs::read(COLLECT_FILE), "buffered", "the collect file");
    child.expect(id_of(STDOUT_FILENO) != output, "a restore brought standard output back");
    child.end();
}

} // namespace

TEST_F(CollectDeathTest, TheDumpsGoIntoTheFileAndTheDescriptorsStayThere)
{
    EXPECT_EXIT(collect_once(), testing::ExitedWithCode(0), "^$");
}

TEST_F(CollectDeathTest, WhatIsPrintedLaterIsCollectedToo)
{
    EXPECT_EXIT(print_after_collect(), testing::ExitedWithCode(0), "^$");
}

TEST_F(CollectDeathTest, AShorterSecondDumpLeavesTheTailOfTheFirst)
{
    EXPECT_EXIT(collect_twice(), testing::ExitedWithCode(0), "^$");
}

TEST_F(CollectDeathTest, ALongerSecondDumpCoversTheFirst)
{
    EXPECT_EXIT(collect_a_longer_dump(), testing::ExitedWithCode(0), "^$");
}

TEST_F(CollectDeathTest, TheRestoreFlushesAndRestoresNothing)
{
    EXPECT_EXIT(restore_alone(), testing::ExitedWithCode(0), "^$");
}

TEST_F(CollectDeathTest, WithoutTheFileTheDumpsGoToStandardOutput)
{
    fake_fs::write("/data/collect", "a file in the folder's place");
    const std::string expected = dumps();
    int32_t result = -1;
    const FileId standard_input = id_of(STDIN_FILENO);
    const std::string output =
        printed([&result] { EXPECT_TRUE(recording::run_command("collect", {}, &result)); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(output, "/data/collect/app_cg.log open fail\r\n" + expected);
    EXPECT_EQ(fake_fs::calls(), COLLECT_CALLS);
    EXPECT_LT(collect_fd, 0);
    EXPECT_TRUE(id_of(STDIN_FILENO) == standard_input);
    EXPECT_GT(collect_saved_stdout, 2);
    EXPECT_EQ(close(collect_saved_stdout), 0) << "the duplicate is kept";
}
