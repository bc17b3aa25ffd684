// Real commands: what a command may do to the process that started it cannot be found out with a stand-in.
#include "process/child_process.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <functional>
#include <string>
#include <system_error>

namespace cg
{

namespace
{

using namespace std::chrono_literals;

const std::vector<std::string> plain_environment{"PATH=/usr/bin:/bin"};
constexpr auto patience = 20s;

// Whether the descriptor becomes readable in time.
bool is_readable(int descriptor, std::chrono::milliseconds limit = patience)
{
    pollfd event{descriptor, POLLIN, 0};
    return ::poll(&event, 1, static_cast<int>(limit.count())) == 1;
}

int status_of(ChildProcess &process)
{
    const std::optional<int> status = process.wait_for(patience);
    EXPECT_TRUE(status) << "it does not end";
    return status.value_or(-1);
}

// Reads until the process has printed a whole line, which is a number.
pid_t printed_pid(ChildProcess &process)
{
    while (!process.output().ends_with('\n') && is_readable(process.descriptor())) {
        process.poll();
    }
    return std::stoi(process.output());
}

// A process that has ended may stay a zombie: in a container the first process may never wait for orphans.
bool has_ended(pid_t pid)
{
    const platform::Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    return !process ? errno == ESRCH : is_readable(process.get());
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

TEST(ChildProcess, HasSignalsAsAProgramExpectsThem)
{
    constexpr std::array reset{SIGPIPE, SIGTERM, SIGINT};
    std::array<sighandler_t, reset.size()> before{};
    std::transform(reset.begin(), reset.end(), before.begin(),
                   [](int number) { return signal(number, SIG_IGN); });
    sigset_t blocked;
    sigset_t mask;
    sigfillset(&blocked);
    pthread_sigmask(SIG_BLOCK, &blocked, &mask);
    ChildProcess process({"grep", "-E", "^Sig(Blk|Ign)", "/proc/self/status"}, plain_environment);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    for (std::size_t i = 0; i < reset.size(); ++i) {
        signal(reset.at(i), before.at(i));
    }
    EXPECT_EQ(status_of(process), 0);
    const std::string &printed = process.output();
    EXPECT_NE(printed.find("SigBlk:\t0000000000000000\n"), std::string::npos) << printed;
    const std::string name = "SigIgn:\t";
    ASSERT_NE(printed.find(name), std::string::npos) << printed;
    const uint64_t ignored = std::stoull(printed.substr(printed.find(name) + name.size()), nullptr, 16);
    for (const int number : reset) {
        EXPECT_EQ(ignored >> static_cast<unsigned>(number - 1) & 1U, 0U) << number;
    }
}

TEST(ChildProcess, ACommandThatDoesNotExistIsRefused)
{
    EXPECT_THROW(ChildProcess({"no-such-command-here"}, plain_environment), std::system_error);
}

TEST(ChildProcess, IsNotHeldUpByWhatItPrints)
{
    ChildProcess process({"sh", "-c", "head -c 1000000 /dev/zero; exit 0"}, plain_environment);
    EXPECT_EQ(status_of(process), 0);
    EXPECT_EQ(process.output().size(), 4096U);
}

// A pipe at its end is readable for ever; a loop that watches it would spin.
TEST(ChildProcess, TheDescriptorIsReadableOnlyWhileThereIsSomethingToDo)
{
    ChildProcess process({"sh", "-c", "echo $$; exec >&- 2>&-; exec sleep 1000"}, plain_environment);
    EXPECT_GT(printed_pid(process), 0);
    for (int reads = 0; reads < 3 && is_readable(process.descriptor(), 20ms); reads++) {
        EXPECT_EQ(process.poll(), std::nullopt); // the ends of both pipes
    }
    EXPECT_FALSE(is_readable(process.descriptor(), 0ms));
    process.signal_group(SIGTERM);
    EXPECT_TRUE(is_readable(process.descriptor()));
    EXPECT_EQ(process.poll(), SIGTERM);
}

TEST(ChildProcess, WaitingEndsAtTheLimit)
{
    ChildProcess process({"sleep", "1000"}, plain_environment);
    EXPECT_EQ(process.wait_for(1ms), std::nullopt);
    EXPECT_EQ(process.wait_for(-1s), std::nullopt);
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
    const pid_t grandchild = printed_pid(process);
    process.signal_group(SIGTERM);
    EXPECT_EQ(status_of(process), SIGTERM);
    EXPECT_TRUE(has_ended(grandchild));
}

TEST(ChildProcess, HandlesSigpipeAsProgramsExpect)
{
    ASSERT_NE(signal(SIGPIPE, SIG_IGN), SIG_ERR);
    ChildProcess process({"sh", "-c", "kill -PIPE $$; echo survived"}, plain_environment);
    EXPECT_EQ(status_of(process), SIGPIPE);
    ASSERT_NE(signal(SIGPIPE, SIG_DFL), SIG_ERR);
}

TEST(ChildProcess, IsKilledAndWaitedForByTheDestructor)
{
    pid_t pid = 0;
    {
        ChildProcess process({"sh", "-c", "trap '' TERM; echo $$; while :; do sleep 1000; done"},
                             plain_environment);
        pid = printed_pid(process);
    }
    EXPECT_EQ(kill(pid, 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

TEST(ChildProcess, AnUnknownCommandCannotBeStarted)
{
    EXPECT_THROW(ChildProcess({"no-such-command-here"}, plain_environment), std::system_error);
}

TEST(FindProgram, SearchesAsTheShellDoes)
{
    EXPECT_EQ(find_program("no-such-command-here"), "");
    EXPECT_EQ(find_program("/etc/passwd"), "");
    EXPECT_TRUE(find_program("sh").ends_with("/sh"));
    EXPECT_EQ(find_program("/bin/sh"), "/bin/sh");
}

} // namespace cg
