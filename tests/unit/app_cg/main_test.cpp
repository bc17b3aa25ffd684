// `main` from its first act to its last, and what each failing step makes of the exit status.
//
// The daemon's own main() is compiled into this file, inside a namespace: a copy of its steps would test the
// copy, and a renaming macro would change the function name in its log records.
#include <sys/time.h>

#include <algorithm>
#include <csignal>
#include <cstdio>

#include "app_cg/app_cg.h"
#include "app_cg/card_nodes.h"
#include "app_cg/startup.h"
#include "app_cg_dbg/logging.h"
#include "fixture.h"
#include "ham.h"
#include "vx_thread.h"

namespace daemon_program
{
#include "app_cg/main.cpp" // NOLINT(bugprone-suspicious-include): see above
}

using namespace lines;

namespace
{

constexpr char HAM_MARKER[] = "/var/run/app_cg_ham.txt";

// The journal of a start that meets no failure, as told by a daemon that says everything.
Lines whole_start()
{
    return {
        "vx_initframe_duplicate_check()",
        "vx_zlog_init(app_cg)",
        info("app_cg_zlog_init", "leave", DBG),
        "vx_global_init(app_cg)",
        info("app_cg_indep_init", "enter"),
        info("app_cg_ssat_init", "enter", DBG),
        "ssat_lib_init(app_cg)",
        "ssat_reg_mod_cmd(app_cg, log-level, 0, \"level=%d\")",
        "ssat_reg_mod_cmd(app_cg, dump_node, 0, \"void\")",
        "ssat_reg_mod_cmd(app_cg, show_time, 0, \"void\")",
        "ssat_reg_mod_cmd(app_cg, dump_all, 0, \"void\")",
        "ssat_reg_mod_cmd(app_cg, collect, 0, \"void\")",
        "ssat_reg_mod_cmd(app_cg, dump_check_module, 0, \"void\")",
        "ssat_reg_mod_cmd(app_cg, update_dev, 0, \"dev=%d slot=%d sslotid=%d compa=%d op=%d\")",
        info("app_cg_ssat_init", "leave", DBG),
        "reg_process_exit_action(0, 2)",
        info("app_cg_indep_init", "leave"),
        "vx_mom_client_connect_sync(1)",
        "vx_mom_client_connect_sync(33)",
        "vx_mom_client_connect(1)",
        "vx_mom_client_connect(33)",
        "vx_mom_client_connect(28)",
        info("app_cg_init", "vx_mom_client_set_reconnect_cb host"),
        "vx_mom_client_set_disconnect_cb(1)",
        "vx_mom_client_set_disconnect_cb(28)",
        "vx_mom_client_set_disconnect_cb(33)",
        "vx_mom_client_set_reconnect_cb(1)",
        "vx_mom_client_set_reconnect_cb(28)",
        "vx_mom_client_set_reconnect_cb(33)",
        info("app_cg_init", "leave"),
        "vx_global_run()",
        "vx_global_finish()",
    };
}

// The lines of a whole start up to and including this one.
Lines start_until(const std::string &last)
{
    Lines lines = whole_start();
    const auto found = std::find(lines.begin(), lines.end(), last);
    EXPECT_NE(found, lines.end()) << last;
    lines.erase(found + 1, lines.end());
    return lines;
}

Lines without(Lines lines, const std::string &line)
{
    const auto found = std::find(lines.begin(), lines.end(), line);
    EXPECT_NE(found, lines.end()) << line;
    lines.erase(found);
    return lines;
}

// The same, with other lines in the place of one.
Lines replaced(const std::string &line, const Lines &others)
{
    Lines lines = whole_start();
    const auto found = std::find(lines.begin(), lines.end(), line);
    EXPECT_NE(found, lines.end()) << line;
    lines.insert(lines.erase(found), others.begin(), others.end());
    return lines;
}

// The daemon before main(): all of its state is zero, nothing is logged.
class MainTest : public VerbosityTest
{
protected:
    void SetUp() override
    {
        VerbosityTest::SetUp();
        g_app_cg_global = {};
    }

    // Runs main() and returns its status; what it printed is in `output`.
    int run()
    {
        int status = 0;
        output = printed([&status] { status = daemon_program::main(); });
        return status;
    }

    std::string output;
};

bool is_set(const timeval &time)
{
    return time.tv_sec != 0;
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Verbosities, MainTest, testing::ValuesIn(ALL_VERBOSITIES), verbosity_name);

TEST_P(MainTest, StartsInOrderRunsAndEndsWithZero)
{
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(recording::journal(), heard(whole_start()));
    EXPECT_EQ(output, "");
}

TEST_P(MainTest, ALoopThatFailsStillEndsWithZero)
{
    recording::script("vx_global_run", {-1});
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(recording::journal(), heard(whole_start()));
}

TEST_P(MainTest, ASecondInstanceSaysSoAndEndsWithMinusOne)
{
    for (const int32_t result : {1, -3}) {
        recording::reset();
        recording::script("vx_initframe_duplicate_check", {result});
        EXPECT_EQ(run(), -1);
        EXPECT_EQ(recording::journal(), Lines{"vx_initframe_duplicate_check()"});
        EXPECT_EQ(output, "app_cg, ret=" + std::to_string(result) + ", FAIL\r\n");
        EXPECT_EQ(fake_fs::calls(), Lines{});
    }
}

TEST_P(MainTest, LoggingThatFailsIsTriedThreeTimesOrTwiceWhenSilent)
{
    recording::script_always("vx_zlog_init", 1);
    EXPECT_EQ(run(), -11);
    const std::size_t attempts = GetParam() > 0 ? 3 : 2;
    EXPECT_EQ(recording::journal(),
              Lines{"vx_initframe_duplicate_check()"} + Lines(attempts, "vx_zlog_init(app_cg)"));
    EXPECT_EQ(output, "");
}

TEST_P(MainTest, LoggingThatSucceedsAtTheLastAttemptEndsWithZeroAllTheSame)
{
    const bool silent = GetParam() == 0;
    recording::script("vx_zlog_init", silent ? std::vector<int32_t>{1} : std::vector<int32_t>{1, 1});
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(recording::journal(),
              heard(Lines{"vx_initframe_duplicate_check()"} + Lines(silent ? 2 : 3, "vx_zlog_init(app_cg)") +
                    Lines{info("app_cg_zlog_init", "leave", DBG)}));
}

TEST_P(MainTest, LoggingThatComesUpForTheMessageTellsThatAttemptsResult)
{
    // Without errors there is no message, so the second attempt is the last one.
    const bool silent = GetParam() == 0;
    recording::script("vx_zlog_init", {1, 0, 1});
    EXPECT_EQ(run(), silent ? 0 : -11);
    Lines expected{"vx_initframe_duplicate_check()", "vx_zlog_init(app_cg)", "vx_zlog_init(app_cg)",
                   info("app_cg_zlog_init", "leave", DBG)};
    if (!silent) {
        expected = expected + Lines{error("main", "failed,rv 0"), info("app_cg_zlog_init", "enter", DBG),
                                    "vx_zlog_init(app_cg)"};
    }
    EXPECT_EQ(recording::journal(), heard(expected));
}

TEST_P(MainTest, WithoutAContextItEndsWithMinusEleven)
{
    recording::script("vx_global_init", {1});
    EXPECT_EQ(run(), -11);
    EXPECT_EQ(recording::journal(), heard(start_until("vx_global_init(app_cg)") +
                                          Lines{error("main", "g_app_cg_global init failed")}));
    EXPECT_EQ(g_app_cg_global.global, nullptr);
    EXPECT_NE(g_app_cg_global.zlog_handle, nullptr);
}

TEST_P(MainTest, ARefusedRegistrationEndsItBeforeAnyConnection)
{
    recording::script("reg_process_exit_action", {6});
    EXPECT_EQ(run(), 6);
    EXPECT_EQ(recording::journal(), heard(start_until("reg_process_exit_action(0, 2)") +
                                          Lines{error("app_cg_indep_init", "init ham fail"),
                                                error("app_cg_init", "app_cg_indep_init failed rv 6"),
                                                error("main", "failed,rv 6")}));
}

TEST_P(MainTest, TheMarkerFileTurnsTheRegistrationOff)
{
    fake_fs::write(HAM_MARKER, "kept");
    const std::size_t descriptors = open_descriptors();
    recording::script_always("reg_process_exit_action", 6);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(recording::journal(), heard(without(whole_start(), "reg_process_exit_action(0, 2)")));
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(fake_fs::read(HAM_MARKER), "kept");
}

TEST_P(MainTest, TheMarkerFileIsNeverMade)
{
    EXPECT_EQ(run(), 0);
    EXPECT_FALSE(fake_fs::exists(HAM_MARKER));
    EXPECT_EQ(fake_fs::calls(),
              (Lines{"open(/data/.vxos/vsd/0/plibpub/app_cg/app_cg/app_cg_dbg.txt, O_RDONLY)",
                     "open(/var/run/app_cg_ham.txt, O_RDWR)"}));
}

TEST_P(MainTest, AMarkerThatCannotBeOpenedForWritingIsNone)
{
    fake_fs::make_folder(HAM_MARKER);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(recording::journal(), heard(whole_start()));
}

TEST_P(MainTest, AShellThatFailsDoesNotStopTheStart)
{
    recording::script_always("ssat_lib_init", -7);
    EXPECT_EQ(run(), 0);
    const Lines again = GetParam() == 0
                            ? Lines{"ssat_lib_init(app_cg)", "ssat_lib_init(app_cg)"}
                            : Lines{"ssat_lib_init(app_cg)", "ssat_lib_init(app_cg)",
                                    error("app_cg_ssat_init", "failed,rv -7", DBG), "ssat_lib_init(app_cg)"};
    Lines expected = replaced("ssat_lib_init(app_cg)", again);
    std::erase_if(expected, [](const std::string &line) { return line.rfind("ssat_reg_mod_cmd", 0) == 0; });
    EXPECT_EQ(recording::journal(), heard(without(expected, info("app_cg_ssat_init", "leave", DBG))));
}

TEST_P(MainTest, AStoreThatCannotBeReachedEndsItAtOnce)
{
    struct Row {
        const char *function;
        std::vector<int32_t> results;
        const char *last_call;
        const char *message;
    };
    const Row rows[] = {
        {"vx_mom_client_connect_sync",
         {-8},
         "vx_mom_client_connect_sync(1)",
         "connect host sync failed, rv -8"},
        {"vx_mom_client_connect_sync",
         {0, 300},
         "vx_mom_client_connect_sync(33)",
         "connect dev global sync failed, rv 300"},
        {"vx_mom_client_connect", {-8}, "vx_mom_client_connect(1)", "connect host failed, rv -8"},
        {"vx_mom_client_connect", {0, -9}, "vx_mom_client_connect(33)", "connect dev failed, rv -9"},
        {"vx_mom_client_connect", {0, 0, 5}, "vx_mom_client_connect(28)", "connect cap failed, rv 5"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.last_call);
        SetUp();
        recording::script(row.function, row.results);
        const int32_t result = row.results.back();
        EXPECT_EQ(run(), result);
        EXPECT_EQ(recording::journal(), heard(start_until(row.last_call) +
                                              Lines{error("app_cg_init", row.message),
                                                    error("main", "failed,rv " + std::to_string(result))}));
    }
}

namespace
{

struct Installation {
    const char *function;
    int32_t db;
    std::size_t calls_before; // of the same function
};

constexpr Installation INSTALLATIONS[] = {
    {"vx_mom_client_set_disconnect_cb", 1, 0},  {"vx_mom_client_set_disconnect_cb", 28, 1},
    {"vx_mom_client_set_disconnect_cb", 33, 2}, {"vx_mom_client_set_reconnect_cb", 1, 0},
    {"vx_mom_client_set_reconnect_cb", 28, 1},  {"vx_mom_client_set_reconnect_cb", 33, 2},
};

std::string call_of(const Installation &step)
{
    return std::string(step.function) + "(" + std::to_string(step.db) + ")";
}

std::string refusal_of(const Installation &step, int32_t rv)
{
    char text[128];
    (void)std::snprintf(text, sizeof text, "%s global %p type %d failed, rv %d", step.function,
                        static_cast<void *>(recording::context()), step.db, rv);
    return error(std::string("app_cg_client_set_") +
                     (std::string(step.function).find("disconnect") == std::string::npos ? "re" : "dis") +
                     "connect_cb",
                 text);
}

// Scripts the step's calls, after those of the same function that come before it.
void script_step(const Installation &step, const std::vector<int32_t> &results)
{
    recording::script(step.function, std::vector<int32_t>(step.calls_before, 0));
    recording::script(step.function, results);
}

// The step's first call with its message, then the repeated ones.
Lines refused_steps(const Installation &step, bool silent, int32_t first, int32_t second, int32_t third)
{
    if (silent) {
        return {call_of(step)};
    }
    Lines lines{refusal_of(step, first), call_of(step)};
    if (second != 0) {
        lines.push_back(refusal_of(step, second));
    }
    lines.push_back(error("app_cg_init", "failed,rv " + std::to_string(second)));
    lines.push_back(call_of(step));
    if (third != 0) {
        lines.push_back(refusal_of(step, third));
    }
    return lines;
}

} // namespace

TEST_P(MainTest, ACallbackThatCannotBeInstalledIsTriedAgainAndItsLastResultEndsIt)
{
    const bool silent = GetParam() == 0;
    for (const Installation &step : INSTALLATIONS) {
        SCOPED_TRACE(call_of(step));
        SetUp();
        script_step(step, silent ? std::vector<int32_t>{-1, -3} : std::vector<int32_t>{-1, -2, -3});
        EXPECT_EQ(run(), -3);
        EXPECT_EQ(recording::journal(),
                  heard(start_until(call_of(step)) + refused_steps(step, silent, -1, -2, -3) +
                        Lines{error("main", "failed,rv -3")}));
    }
}

TEST_P(MainTest, ACallbackInstalledAtTheLastAttemptLetsItRunWithoutTheOnesAfter)
{
    const bool silent = GetParam() == 0;
    for (const Installation &step : INSTALLATIONS) {
        SCOPED_TRACE(call_of(step));
        SetUp();
        script_step(step, silent ? std::vector<int32_t>{-1} : std::vector<int32_t>{-1, -2});
        EXPECT_EQ(run(), 0);
        EXPECT_EQ(recording::journal(),
                  heard(start_until(call_of(step)) + refused_steps(step, silent, -1, -2, 0) +
                        Lines{"vx_global_run()", "vx_global_finish()"}));
    }
}

TEST_P(MainTest, EachStartTimeIsTakenAtItsMoment)
{
    const app_cg_global_t &g = g_app_cg_global;
    std::vector<std::string> seen;
    const auto look = [&seen](const char *function) {
        recording::script_action(function, [&seen, function] {
            seen.push_back(std::string(function) + (is_set(g.time_run) ? " run" : "") +
                           (is_set(g.time_init_global) ? " global" : "") +
                           (is_set(g.time_init_st) ? " st" : "") + (is_set(g.time_ham_init) ? " ham" : ""));
        });
    };
    for (const char *function : {"vx_initframe_duplicate_check", "vx_zlog_init", "vx_global_init",
                                 "ssat_lib_init", "reg_process_exit_action"}) {
        look(function);
    }
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(seen,
              (Lines{"vx_initframe_duplicate_check run", "vx_zlog_init run", "vx_global_init run global",
                     "ssat_lib_init run global st", "reg_process_exit_action run global st ham"}));
    EXPECT_FALSE(timercmp(&g.time_init_global, &g.time_run, <));
    EXPECT_FALSE(timercmp(&g.time_init_st, &g.time_init_global, <));
    EXPECT_FALSE(timercmp(&g.time_ham_init, &g.time_init_st, <));
}

TEST_P(MainTest, ABrokenPipeIsIgnoredBeforeAnythingIsPrinted)
{
    (void)std::signal(SIGPIPE, SIG_DFL);
    recording::script("vx_initframe_duplicate_check", {1});
    EXPECT_EQ(run(), -1);
    EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_IGN);
}

TEST_P(MainTest, TheTableIsEmptyAndTheContextKnownBeforeTheyAreUsed)
{
    app_cg_list_t *const head = &g_app_cg_global.card_nodes;
    std::vector<bool> seen;
    recording::script_action("vx_global_init", [&seen, head] {
        seen.push_back(head->next == head && head->prev == head && g_app_cg_global.global == nullptr);
    });
    recording::on_run([&seen] { seen.push_back(g_app_cg_global.global == recording::context()); });
    g_app_cg_global.global = recording::context(); // made null again by main()
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(seen, (std::vector<bool>{true, true}));
}

TEST_P(MainTest, ALevelFileDecidesWhatTheStartTells)
{
    fake_fs::write("/data/.vxos/vsd/0/plibpub/app_cg/app_cg/app_cg_dbg.txt", "4\n");
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(recording::journal(), whole_start());
}
