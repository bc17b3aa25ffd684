// What the process manager hears, and that a program runs once.
#include "ham.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "unit/builtin/platform_fixture.h"
#include "vx_thread.h"

namespace
{

using namespace std::chrono_literals;
using testing_platform::Child;
using testing_platform::content_of;
using testing_platform::Mailbox;
using testing_platform::ScopedSetting;
using testing_platform::Signpost;
using testing_platform::to_timeval;

// --- The process manager

class ProcessManager : public testing::Test
{
protected:
    testing_platform::TempFolder folder;
    const std::string path = folder.file("notify");
    ScopedSetting socket{"NOTIFY_SOCKET", path};
    ScopedSetting watchdog_pid{"WATCHDOG_PID", nullptr};
    ScopedSetting watchdog{"WATCHDOG_USEC", nullptr};

    static int32_t pass_by(vx_thread_t *t)
    {
        static_cast<Signpost *>(t->arg)->reach();
        return 0;
    }
    // Runs a loop until a signal ends it; `served` is reached from inside of it.
    static int serve(Signpost &served)
    {
        vx_global_t *global = vx_global_init("test", nullptr);
        vx_thread_add_timer_timeval(global, pass_by, &served, to_timeval(10ms));
        const int32_t result = vx_global_run(global);
        vx_global_finish(global);
        return result;
    }
};

TEST_F(ProcessManager, HearsOfTheStartTheLoopAndTheEnd)
{
    const Mailbox manager(path);
    Signpost served;
    Child daemon{[&] { return reg_process_exit_action(0, 2) == 0 ? serve(served) : 2; }};
    EXPECT_EQ(manager.next(), "STATUS=Starting");
    EXPECT_EQ(manager.next(), "READY=1\nSTATUS=Serving");
    daemon.send(SIGTERM);
    EXPECT_EQ(manager.next(), "STOPPING=1\nSTATUS=Stopping");
    EXPECT_EQ(daemon.wait(), 0);
}

TEST_F(ProcessManager, HearsNothingOfAProcessThatDidNotRegister)
{
    const Mailbox manager(path);
    Signpost served;
    Child daemon{[&] { return serve(served); }};
    ASSERT_TRUE(served.wait());
    daemon.send(SIGTERM);
    EXPECT_EQ(daemon.wait(), 0);
    EXPECT_EQ(manager.next(0ms), "");
}

TEST_F(ProcessManager, WatchdogIsFedFromTheLoop)
{
    const Mailbox manager(path);
    const ScopedSetting interval("WATCHDOG_USEC", "40000");
    Signpost served;
    Child daemon{[&] { return reg_process_exit_action(0, 2) == 0 ? serve(served) : 2; }};
    EXPECT_EQ(manager.next(), "STATUS=Starting");
    EXPECT_EQ(manager.next(), "READY=1\nSTATUS=Serving");
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(manager.next(), "WATCHDOG=1");
    }
}

int32_t hang(vx_thread_t * /*t*/)
{
    while (true) {
        pause();
    }
}

TEST_F(ProcessManager, WatchdogIsNotFedWhileACallbackHangs)
{
    const Mailbox manager(path);
    const ScopedSetting interval("WATCHDOG_USEC", "40000");
    Child daemon{[&] {
        vx_global_t *global = vx_global_init("test", nullptr);
        reg_process_exit_action(0, 2);
        vx_thread_add_timer_timeval(global, hang, nullptr, to_timeval(50ms));
        return vx_global_run(global);
    }};
    EXPECT_EQ(manager.next(), "STATUS=Starting");
    EXPECT_EQ(manager.next(), "READY=1\nSTATUS=Serving");
    int signs_of_life = 0;
    while (manager.next(300ms) == "WATCHDOG=1") { // far longer than the interval: silence means that it hangs
        ASSERT_LT(++signs_of_life, 5);
    }
    daemon.send(SIGKILL);
    EXPECT_EQ(daemon.wait(), 128 + SIGKILL);
}

TEST_F(ProcessManager, NobodyListeningIsNoFailure)
{
    Child daemon{[&] {
        EXPECT_EQ(reg_process_exit_action(0, 2), 0) << "no such socket";
        {
            const Mailbox gone(path);
        }
        EXPECT_EQ(reg_process_exit_action(0, 2), 0) << "a dead socket";
        const ScopedSetting empty("NOTIFY_SOCKET", "");
        EXPECT_EQ(reg_process_exit_action(0, 2), 0) << "an empty name";
        const ScopedSetting none("NOTIFY_SOCKET", nullptr);
        EXPECT_EQ(reg_process_exit_action(0, 2), 0) << "no manager at all";
        Signpost served;
        testing_platform::end_loop_after(20ms);
        return serve(served);
    }};
    EXPECT_EQ(daemon.wait(), 0);
}

TEST_F(ProcessManager, SocketThatIsNoneIsAFailureAndNamed)
{
    const ScopedSetting relative("NOTIFY_SOCKET", "not/absolute");
    testing::internal::CaptureStderr();
    EXPECT_LT(reg_process_exit_action(0, 2), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr().rfind(
                  "platform: cannot reach the process manager at NOTIFY_SOCKET=not/absolute: ", 0),
              0U);
}

TEST_F(ProcessManager, FirstArgumentMustBeNull)
{
    EXPECT_LT(reg_process_exit_action(1, 2), 0);
}

// --- The single instance

class SingleInstance : public testing::Test
{
protected:
    testing_platform::TempFolder folder;
    const std::string path = folder.file("lock");
    ScopedSetting lock{"VX_LOCK_FILE", path};

    // Takes the lock and lives until it is killed.
    static int hold(Signpost &held)
    {
        if (vx_initframe_duplicate_check() != 0) {
            return 2;
        }
        return live(held);
    }
    static int live(Signpost &held)
    {
        held.reach();
        while (true) {
            pause();
        }
    }
    // What a second process is told: its result and what it says on standard error.
    struct Answer {
        int result;
        std::string message;
    };
    Answer ask_as_another_process() const
    {
        const std::string message = folder.file("message");
        Child second{[&] {
            dup2(open(message.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
            const int32_t result = vx_initframe_duplicate_check();
            return result < 0 ? 100 : result;
        }};
        return {second.wait(), content_of(message)};
    }
};

TEST_F(SingleInstance, SecondOneIsToldWhoHoldsTheLock)
{
    Signpost held;
    const Child first{[&] { return hold(held); }};
    ASSERT_TRUE(held.wait());
    EXPECT_EQ(content_of(path), std::to_string(first.pid()) + "\n");
    const Answer answer = ask_as_another_process();
    EXPECT_EQ(answer.result, 1);
    EXPECT_EQ(answer.message, "platform: " + path + " is held by another instance, pid " +
                                  std::to_string(first.pid()) + "\n");
}

TEST_F(SingleInstance, HolderIsStillTheOnlyOneWhenAskedAgain)
{
    Child first{[] { return vx_initframe_duplicate_check() == 0 ? vx_initframe_duplicate_check() : 2; }};
    EXPECT_EQ(first.wait(), 0);
}

TEST_F(SingleInstance, KilledOneKeepsNobodyOut)
{
    Signpost held;
    Child first{[&] { return hold(held); }};
    ASSERT_TRUE(held.wait());
    first.send(SIGKILL);
    EXPECT_EQ(first.wait(), 128 + SIGKILL);
    EXPECT_EQ(ask_as_another_process().result, 0);
}

TEST_F(SingleInstance, ProgramsThatItStartedDoNotKeepTheLock)
{
    const std::string pid_file = folder.file("pid");
    Child first{[&] {
        const int32_t result = vx_initframe_duplicate_check();
        const std::string command = "sleep 1000 >/dev/null 2>&1 & echo $! > " + pid_file;
        return system(command.c_str()) == 0 ? result : 2;
    }};
    EXPECT_EQ(first.wait(), 0);
    const pid_t sleeper = std::stoi(content_of(pid_file));
    EXPECT_EQ(kill(sleeper, 0), 0) << "it should still run";
    EXPECT_EQ(ask_as_another_process().result, 0);
    kill(sleeper, SIGKILL);
}

TEST_F(SingleInstance, LockFileOfAnEarlierRunIsTakenOver)
{
    testing_platform::write_file(path, "1234567890 and more than a pid");
    Signpost held;
    const Child first{[&] { return hold(held); }};
    ASSERT_TRUE(held.wait());
    EXPECT_EQ(content_of(path), std::to_string(first.pid()) + "\n");
}

TEST_F(SingleInstance, PathThatCannotBeLockedIsNamed)
{
    const ScopedSetting nowhere("VX_LOCK_FILE", folder.file("missing/lock"));
    const Answer answer = ask_as_another_process();
    EXPECT_EQ(answer.result, 100);
    EXPECT_EQ(answer.message,
              "platform: cannot lock " + folder.file("missing/lock") + ": No such file or directory\n");
}

TEST_F(SingleInstance, LockSurvivesThatStandardDescriptorsWereClosedAndMove)
{
    Signpost held;
    const Child first{[&] {
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        const int32_t result = vx_initframe_duplicate_check();
        dup2(STDERR_FILENO, STDIN_FILENO);
        dup2(STDERR_FILENO, STDOUT_FILENO);
        return result == 0 ? live(held) : 2;
    }};
    ASSERT_TRUE(held.wait());
    EXPECT_EQ(ask_as_another_process().result, 1);
}

} // namespace
