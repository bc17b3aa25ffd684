// Real commands: what a check command may do to its runner is not to be found out with a stand-in.
#include "process/child_process.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "unit/support/child.h"

namespace cg
{

namespace
{

const std::vector<std::string> plain_environment{"PATH=/usr/bin:/bin"};

int status_of(ChildProcess &process)
{
    std::optional<int> status;
    EXPECT_TRUE(eventually([&] { return (status = process.poll()).has_value(); }));
    return status.value_or(-1);
}

// Whether a process has ended. An orphan that nobody has waited for yet has: in a container the first process
// may never do so.
bool is_gone(pid_t pid)
{
    if (kill(pid, 0) != 0) {
        return errno == ESRCH;
    }
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    const std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    const size_t name_end = text.rfind(") ");
    return name_end == std::string::npos || text[name_end + 2] == 'Z';
}

} // namespace

TEST(ChildProcess, GivesStatusAndOutput)
{
    ChildProcess process({"sh", "-c", "echo out; echo err >&2; exit 3"}, plain_environment);
    const int status = status_of(process);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_EQ(process.output(), "out\n");
    EXPECT_EQ(process.errors(), "err\n");
    EXPECT_EQ(process.poll(), status) << "the status stays known";
}

TEST(ChildProcess, IsNotHeldUpByWhatItPrints)
{
    ChildProcess process({"sh", "-c", "head -c 1000000 /dev/zero; exit 0"}, plain_environment);
    EXPECT_EQ(status_of(process), 0);
    EXPECT_EQ(process.output().size(), 4096U);
}

TEST(ChildProcess, HasEmptyInputItsOwnEnvironmentAndNoDescriptorsOfOurs)
{
    // Beyond the three standard ones there is only the one that ls itself opens.
    ChildProcess process({"sh", "-c", "cat; echo $MARK; ls /proc/self/fd | wc -l"},
                         {"PATH=/usr/bin:/bin", "MARK=seen"});
    EXPECT_EQ(status_of(process), 0);
    EXPECT_EQ(process.output().substr(0, 7), "seen\n4\n");
}

TEST(ChildProcess, SignalsReachAllThatItStarted)
{
    ChildProcess process({"sh", "-c", "sleep 1000 & echo $!; wait"}, plain_environment);
    ASSERT_TRUE(eventually([&] {
        process.poll();
        return process.output().ends_with('\n');
    }));
    const pid_t grandchild = std::stoi(process.output());
    process.signal_group(SIGTERM);
    EXPECT_EQ(status_of(process), SIGTERM);
    EXPECT_TRUE(eventually([&] { return is_gone(grandchild); }));
}

TEST(ChildProcess, TakesSigpipeAsProgramsExpect)
{
    ASSERT_NE(signal(SIGPIPE, SIG_IGN), SIG_ERR);
    ChildProcess process({"sh", "-c", "kill -PIPE $$; echo survived"}, plain_environment);
    EXPECT_EQ(status_of(process), SIGPIPE);
    ASSERT_NE(signal(SIGPIPE, SIG_DFL), SIG_ERR);
}

TEST(ChildProcess, IsKilledAndWaitedForAtItsEnd)
{
    pid_t pid = 0;
    {
        ChildProcess process({"sh", "-c", "trap '' TERM; echo $$; while :; do sleep 1000; done"},
                             plain_environment);
        ASSERT_TRUE(eventually([&] {
            process.poll();
            return process.output().ends_with('\n');
        }));
        pid = std::stoi(process.output());
    }
    EXPECT_TRUE(is_gone(pid));
}

TEST(ChildProcess, AnUnknownCommandCannotBeStarted)
{
    EXPECT_THROW(ChildProcess({"no-such-command-here"}, plain_environment), std::system_error);
    EXPECT_FALSE(is_executable("no-such-command-here"));
    EXPECT_FALSE(is_executable("/etc/passwd"));
    EXPECT_TRUE(is_executable("sh"));
    EXPECT_TRUE(is_executable("/bin/sh"));
}

} // namespace cg
