// cgctl debug against a real shell, in a process that stands for the daemon.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

#include "base/failure.h"
#include "base/text.h"
#include "shell/debug_shell.h"
#include "ssat.h"
#include "unit/tools/cgctl/run_cgctl.h"
#include "vx_thread.h"

namespace cg
{

namespace
{

int32_t greet()
{
    printf("hello\r\n");
    return 0;
}

int32_t add(int32_t a, int32_t b)
{
    printf("%d\n", a + b);
    return a + b;
}

// The daemon's part: a shell with two commands.
int serve()
{
    vx_global_t *global = vx_global_init("app_cg", nullptr);
    if (global == nullptr || ssat_lib_init(global, "app_cg") != 0) {
        return 1;
    }
    ssat_reg_mod_cmd("app_cg", "greet", 0, "void", greet);
    ssat_reg_mod_cmd("app_cg", "add", 0, "a=%d b=%d",
                     reinterpret_cast<ssat_handler_f>(reinterpret_cast<void (*)()>(add)));
    const int32_t result = vx_global_run(global);
    vx_global_finish(global);
    return result == 0 ? 0 : 1;
}

class DebugVerb : public testing::Test
{
protected:
    DebugVerb()
    {
        setenv("SSAT_SOCKET", folder_.path("shell").c_str(), 1);
        daemon_ = std::make_unique<Child>(serve);
        EXPECT_TRUE(eventually([] { return run_cgctl({"debug", "--list"}).status == 0; })) << daemon_->err();
    }

    Folder folder_;
    std::unique_ptr<Child> daemon_;
};

} // namespace

TEST(DebugOutput, CannotCommandATerminal)
{
    EXPECT_EQ(
        lines_for_terminal("node[0x1] reason[\033[2J\007]\r\n\tplain\n"),
        (std::vector<std::string>{"node[0x1] reason[" + visible("\033[2J\007") + "]", visible("\tplain")}));
    EXPECT_EQ(lines_for_terminal("a\033]0;x")[0].find('\033'), std::string::npos);
    EXPECT_TRUE(lines_for_terminal("").empty());
}

TEST_F(DebugVerb, ListsTheCommands)
{
    EXPECT_EQ(run_cgctl({"debug", "--list"}).out, "greet\nadd a=%d b=%d\n");
    const Json commands = run_cgctl({"debug", "--list", "--json"}).json()["commands"];
    ASSERT_EQ(commands.size(), 2U);
    EXPECT_EQ(commands[1], (Json{{"module", "app_cg"}, {"command", "add"}, {"arguments", "a=%d b=%d"}}));
}

TEST_F(DebugVerb, PrintsWhatTheCommandPrinted)
{
    const Outcome outcome = run_cgctl({"debug", "greet"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "hello\r\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(run_cgctl({"debug", "greet", "--json"}).json()["output"], "hello\r\n");
}

TEST_F(DebugVerb, AResultOtherThanZeroIsAFailureThatSaysIt)
{
    const Outcome outcome = run_cgctl({"debug", "add", "b=-7", "a=4"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "-3\n");
    EXPECT_EQ(outcome.err, "cgctl: add returned -3\n");
    EXPECT_EQ(run_cgctl({"debug", "add", "a=1", "b=-1"}).status, 0);
}

TEST_F(DebugVerb, WrongUsageIsToldApart)
{
    for (const std::vector<std::string> &arguments : {std::vector<std::string>{"debug", "gret"},
                                                      {"debug", "add"},
                                                      {"debug", "add", "a=1", "c=2"},
                                                      {"debug", "add", "a=1", "b=x"},
                                                      {"debug", "greet", "a=1"}}) {
        const Outcome outcome = run_cgctl(arguments);
        EXPECT_EQ(outcome.status, 2) << arguments[1] << ": " << outcome.err;
        EXPECT_EQ(outcome.out, "");
    }
}

TEST_F(DebugVerb, AnUnknownCommandIsToldWhereTheRightOnesAre)
{
    EXPECT_EQ(
        run_cgctl({"debug", "gret"}).err,
        "cgctl: module 'app_cg' has no command 'gret'; `cgctl debug --list` lists those that there are\n");
}

TEST_F(DebugVerb, NobodyThereIsAFailure)
{
    const std::string nowhere = folder_.path("nobody");
    EXPECT_EQ(run_cgctl({"debug", "greet", "--socket", nowhere}).status, 1);
    EXPECT_NE(run_cgctl({"debug", "--list", "--socket", nowhere}).err.find(nowhere), std::string::npos);
    EXPECT_EQ(run_cgctl({"--socket", folder_.path("shell"), "debug", "greet"}).status, 0);
}

TEST_F(DebugVerb, LinesAreAllRunAndAFailureIsRemembered)
{
    std::ostringstream out;
    std::ostringstream err;
    const Session session{{out, err}};
    DebugShell shell(session);
    std::istringstream good("greet\n\n# a comment\n  add a=1 b=-1\nquit\nno-such-command\n");
    EXPECT_EQ(shell.run_lines(good), 0);
    EXPECT_EQ(out.str(), "hello\r\n0\n");
    std::istringstream bad("gret\nadd a=2 b=2\ngreet");
    EXPECT_EQ(shell.run_lines(bad), 1);
    EXPECT_EQ(out.str(), "hello\r\n0\n4\nhello\r\n");
    EXPECT_NE(err.str().find("has no command 'gret'"), std::string::npos) << err.str();
    EXPECT_NE(err.str().find("add returned 4"), std::string::npos);
}

TEST_F(DebugVerb, SaysWhichDaemonAnswers)
{
    std::ostringstream out;
    std::ostringstream err;
    const Session session{{out, err}};
    std::istringstream nothing;
    EXPECT_EQ(DebugShell(session).run_lines(nothing), 0);
    EXPECT_EQ(err.str(), "cgctl: app_cg, process " + std::to_string(daemon_->pid()) + ", at " +
                             folder_.path("shell") + "\n");
}

TEST_F(DebugVerb, AnotherDaemonIsToldOf)
{
    std::ostringstream out;
    std::ostringstream err;
    const Session session{{out, err}};
    DebugShell shell(session);
    std::istringstream one("greet");
    EXPECT_EQ(shell.run_lines(one), 0);
    daemon_ = nullptr;
    std::istringstream alone("greet");
    EXPECT_THROW(shell.run_lines(alone), Failure);
    daemon_ = std::make_unique<Child>(serve);
    EXPECT_TRUE(eventually([] { return run_cgctl({"debug", "--list"}).status == 0; })) << daemon_->err();
    std::istringstream again("greet");
    EXPECT_EQ(shell.run_lines(again), 0);
    EXPECT_NE(err.str().find("process " + std::to_string(daemon_->pid())), std::string::npos) << err.str();
}

TEST(DebugStartTime, IsReadFromWhatIsPrinted)
{
    EXPECT_EQ(start_time_in("\r\n====\r\napp_cg run 1700000000:123\r\ninit global 1:2"), 1700000000);
    EXPECT_EQ(start_time_in("app_cg run x"), 0);
    EXPECT_EQ(start_time_in(""), 0);
}

} // namespace cg
