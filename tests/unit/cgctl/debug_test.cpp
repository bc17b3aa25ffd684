// cgctl debug against a real shell, in a process that stands for the daemon.
#include <gtest/gtest.h>

#include <cstdio>

#include "ssat.h"
#include "store_fixture.h"
#include "vx_thread.h"

namespace cgctl
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
        EXPECT_TRUE(eventually([] { return run_cgctl({"debug"}).status == 0; })) << daemon_->err();
    }

    Folder folder_;
    std::unique_ptr<Child> daemon_;
};

} // namespace

TEST_F(DebugVerb, ListsTheCommands)
{
    EXPECT_EQ(run_cgctl({"debug"}).out, "greet\nadd a=%d b=%d\n");
    const Json commands = run_cgctl({"debug", "--json"}).json()["commands"];
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
    EXPECT_EQ(run_cgctl({"debug", "gret"}).err,
              "cgctl: module 'app_cg' has no command 'gret'; `cgctl debug` lists those that there are\n");
}

TEST_F(DebugVerb, NobodyThereIsAFailure)
{
    const std::string nowhere = folder_.path("nobody");
    EXPECT_EQ(run_cgctl({"debug", "greet", "--socket", nowhere}).status, 1);
    EXPECT_NE(run_cgctl({"debug", "--socket", nowhere}).err.find(nowhere), std::string::npos);
    EXPECT_EQ(run_cgctl({"--socket", folder_.path("shell"), "debug", "greet"}).status, 0);
}

} // namespace cgctl
