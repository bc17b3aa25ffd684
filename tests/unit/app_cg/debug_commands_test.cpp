// The debug commands, called as the shell calls them.
#include "app_cg_dbg/debug_commands.h"

#include "app_cg/card_nodes.h"
#include "app_cg/check_modules.h"
#include "app_cg_dbg/logging.h"
#include "fixture.h"

using namespace lines;

namespace
{

constexpr char TABLE_HEADER[] = "===================CURRENT_NODE_INFO===================\n";

const Lines COMMANDS{
    "ssat_reg_mod_cmd(app_cg, log-level, 0, \"level=%d\")",
    "ssat_reg_mod_cmd(app_cg, dump_node, 0, \"void\")",
    "ssat_reg_mod_cmd(app_cg, show_time, 0, \"void\")",
    "ssat_reg_mod_cmd(app_cg, dump_all, 0, \"void\")",
    "ssat_reg_mod_cmd(app_cg, collect, 0, \"void\")",
    "ssat_reg_mod_cmd(app_cg, dump_check_module, 0, \"void\")",
    "ssat_reg_mod_cmd(app_cg, update_dev, 0, \"dev=%d slot=%d sslotid=%d compa=%d op=%d\")",
};

constexpr char STATUS_KEY[] =
    "index={t_devid=1 t_slotid=3 t_mod_name=\"APP_CG\" t_reason=\"not compatible\"}";

std::string set_status()
{
    return "vx_mom_set(33, p_dev.dm_set_card_custom_st{" + std::string(STATUS_KEY) +
           " level=DM_CTM_APP_CG status=CANNOT_STARTUP})";
}

std::string delete_status()
{
    return "vx_mom_del(33, p_dev.dm_set_card_custom_st{" + std::string(STATUS_KEY) + "})";
}

std::string update_trace(int32_t stat, const char *op)
{
    return info("app_cg_update_dev_check_result",
                "update dev[1] slot[3] sslot[0], stat[" + std::to_string(stat) + "] op[" + op + "]");
}

// A command's result and what it printed.
struct Outcome {
    int32_t result = 0;
    std::string output;
};

class DebugCommandsTest : public VerbosityTest
{
protected:
    void SetUp() override
    {
        VerbosityTest::SetUp();
        EXPECT_EQ(app_cg_ssat_init(recording::context(), "app_cg"), 0);
        registration = recording::take();
        g_app_cg_global.time_run = {11, 12};
        g_app_cg_global.time_init_global = {21, 22};
        g_app_cg_global.time_ham_init = {31, 32};
        g_app_cg_global.time_init_st = {41, 42};
    }

    Outcome run(const std::string &command, const std::vector<int32_t> &arguments = {})
    {
        Outcome outcome;
        outcome.output = printed([&outcome, &command, &arguments] {
            EXPECT_TRUE(recording::run_command(command, arguments, &outcome.result)) << command;
        });
        return outcome;
    }

    static void add_node()
    {
        CardNode node{};
        node.devid = 1;
        node.slotid = 3;
        node.stat = 2;
        ASSERT_NE(app_cg_node_init(node, &g_app_cg_global.card_nodes), nullptr);
        (void)recording::take();
    }

    Lines registration;
};

const std::string TIMES = "\r\n=====================================\r\n"
                          "app_cg run 11:12\r\n"
                          "init global 21:22\r\n"
                          "ham init ok 31:32\r\n"
                          "cg init st 41:42\r\n"
                          "\r\n=====================================\r\n";

const std::string NODE_TEXT =
    "node[0x00000000] config_dev_type[0] devid[1] slotid[3] sslotid[0] is_online[0] "
    "tipc_node[0] node_type[0], dm_install[0] reported[0] reason[] stat[2] "
    "app_cg_wait_obj_num[0] app_cg_wait_obj_bmp[0] timer[(nil)]\n";

} // namespace

INSTANTIATE_TEST_SUITE_P(Verbosities, DebugCommandsTest, testing::ValuesIn(ALL_VERBOSITIES), verbosity_name);

TEST_P(DebugCommandsTest, SevenCommandsAreRegisteredInOrder)
{
    EXPECT_EQ(registration, heard(Lines{info("app_cg_ssat_init", "enter", DBG), "ssat_lib_init(app_cg)"} +
                                  COMMANDS + Lines{info("app_cg_ssat_init", "leave", DBG)}));
}

TEST_P(DebugCommandsTest, AShellThatFailsIsTriedAgainAndNothingIsRegistered)
{
    const bool silent = GetParam() == 0;
    recording::script("ssat_lib_init",
                      silent ? std::vector<int32_t>{-1, -3} : std::vector<int32_t>{-1, -2, -3});
    EXPECT_EQ(app_cg_ssat_init(recording::context(), "app_cg"), -3);
    const Lines calls = silent
                            ? Lines{"ssat_lib_init(app_cg)", "ssat_lib_init(app_cg)"}
                            : Lines{"ssat_lib_init(app_cg)", "ssat_lib_init(app_cg)",
                                    error("app_cg_ssat_init", "failed,rv -2", DBG), "ssat_lib_init(app_cg)"};
    EXPECT_EQ(recording::journal(), heard(Lines{info("app_cg_ssat_init", "enter", DBG)} + calls));
}

TEST_P(DebugCommandsTest, AShellThatComesUpAtTheLastAttemptGivesZeroButNoCommands)
{
    const bool silent = GetParam() == 0;
    recording::script("ssat_lib_init", silent ? std::vector<int32_t>{-1} : std::vector<int32_t>{-1, -2});
    EXPECT_EQ(app_cg_ssat_init(recording::context(), "app_cg"), 0);
    for (const std::string &line : recording::journal()) {
        EXPECT_EQ(line.find("ssat_reg_mod_cmd"), std::string::npos) << line;
    }
}

TEST_P(DebugCommandsTest, ACommandThatCannotBeRegisteredIsNotNoticed)
{
    recording::script_always("ssat_reg_mod_cmd", -1);
    EXPECT_EQ(app_cg_ssat_init(recording::context(), "app_cg"), 0);
    EXPECT_EQ(recording::journal(), registration);
}

TEST_P(DebugCommandsTest, TheModuleAndTheContextArePassedOn)
{
    (void)recording::take();
    EXPECT_EQ(app_cg_ssat_init(nullptr, "other"), 0);
    const Lines expected =
        heard({info("app_cg_ssat_init", "enter", DBG), "ssat_lib_init(other) context=wrong"});
    ASSERT_GE(recording::journal().size(), expected.size());
    EXPECT_EQ(Lines(recording::journal().begin(),
                    recording::journal().begin() + static_cast<std::ptrdiff_t>(expected.size())),
              expected);
}

TEST_P(DebugCommandsTest, LogLevelSetsTheVerbosityUnchecked)
{
    for (const int32_t level : {0, 1, 4, -1, 1000}) {
        app_cg_verbosity = GetParam();
        const Outcome outcome = run("log-level", {level});
        EXPECT_EQ(outcome.output, "");
        EXPECT_EQ(app_cg_verbosity, static_cast<uint32_t>(level));
        EXPECT_EQ(recording::take(),
                  heard({warn("app_cg_log_level", "set debug level " + std::to_string(level), DBG)}));
    }
}

TEST_P(DebugCommandsTest, AfterLogLevelZeroNoErrorIsWritten)
{
    (void)run("log-level", {0});
    (void)recording::take();
    EXPECT_EQ(app_cg_deny_check_init_wait_obj(nullptr, nullptr), -4);
    EXPECT_EQ(recording::journal(), Lines{});
    (void)run("log-level", {4});
    EXPECT_EQ(app_cg_deny_check_init_wait_obj(nullptr, nullptr), -4);
    EXPECT_EQ(recording::journal(),
              Lines{error("app_cg_deny_check_init_wait_obj", "input arguments error.\r\n")});
}

TEST_P(DebugCommandsTest, ShowTimePrintsTheFourTimes)
{
    const Outcome outcome = run("show_time");
    EXPECT_EQ(outcome.output, TIMES);
    EXPECT_EQ(recording::journal(), Lines{});
}

TEST_P(DebugCommandsTest, ShowTimePrintsLargeTimesWhole)
{
    g_app_cg_global.time_run = {4102444800, 999999};
    EXPECT_NE(run("show_time").output.find("app_cg run 4102444800:999999\r\n"), std::string::npos);
}

TEST_P(DebugCommandsTest, DumpNodePrintsTheTable)
{
    EXPECT_EQ(run("dump_node").output, TABLE_HEADER);
    EXPECT_EQ(recording::journal(), Lines{});
    add_node();
    EXPECT_EQ(run("dump_node").output, TABLE_HEADER + NODE_TEXT);
    EXPECT_EQ(recording::journal(), heard({info("app_cg_dump_node", NODE_TEXT)}));
}

TEST_P(DebugCommandsTest, DumpCheckModulePrintsTheRegistry)
{
    g_app_cg_global.wait_obj = {1, 1, {"m1"}};
    EXPECT_EQ(run("dump_check_module").output,
              "app_cg_wait_obj_num 1\napp_cg_wait_obj_bmp 0x1\nwait mod[0], name[m1]\n");
    EXPECT_EQ(recording::journal(), Lines{});
}

TEST_P(DebugCommandsTest, DumpAllPrintsRegistryThenTimesThenTable)
{
    g_app_cg_global.wait_obj = {1, 1, {"m1"}};
    add_node(); // takes a copy of the registry
    std::string node = NODE_TEXT;
    node.replace(node.find("app_cg_wait_obj_num[0] app_cg_wait_obj_bmp[0]"), 45,
                 "app_cg_wait_obj_num[1] app_cg_wait_obj_bmp[1]");
    const Outcome outcome = run("dump_all");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.output, "app_cg_wait_obj_num 1\napp_cg_wait_obj_bmp 0x1\nwait mod[0], name[m1]\n" +
                                  TIMES + TABLE_HEADER + node);
}

TEST_P(DebugCommandsTest, UpdateDevSaysWhatItIsAskedAndRefusesWithoutTheMasterRole)
{
    for (const int32_t role : {0, 2, 3}) {
        g_app_cg_global.grole = role;
        const Outcome outcome = run("update_dev", {1, 3, 0, 2, 1});
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.output, "begin set_chk_ack, devid 1 slotid 3 sslotid 0 stat 2 op 1\n");
        EXPECT_EQ(recording::take(), heard({update_trace(2, "SET"), warn("app_cg_update_dev_check_result",
                                                                         "not master, no need to pro, role " +
                                                                             std::to_string(role))}));
    }
}

TEST_P(DebugCommandsTest, UpdateDevWritesForADenyThatIsSetAndDeletesOtherwise)
{
    g_app_cg_global.grole = 1;
    struct Row {
        int32_t compa;
        int32_t op;
        bool writes;
    };
    const Row rows[] = {{2, 1, true},  {2, -1, true}, {1, 1, false},
                        {0, 1, false}, {3, 1, false}, {2, 0, false}};
    for (const Row &row : rows) {
        SCOPED_TRACE(std::to_string(row.compa) + " " + std::to_string(row.op));
        const Outcome outcome = run("update_dev", {1, 3, 0, row.compa, row.op});
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.output, "begin set_chk_ack, devid 1 slotid 3 sslotid 0 stat " +
                                      std::to_string(row.compa) + " op " + std::to_string(row.op) + "\n");
        EXPECT_EQ(recording::take(), heard({update_trace(row.compa, row.op == 0 ? "DEL" : "SET"),
                                            row.writes ? set_status() : delete_status(),
                                            info("app_cg_update_dev_check_result", "leave")}));
    }
}

TEST_P(DebugCommandsTest, UpdateDevPassesTheWritersResultOn)
{
    g_app_cg_global.grole = 1;
    recording::script("vx_mom_set", {-9, -5});
    EXPECT_EQ(run("update_dev", {1, 3, 0, 2, 1}).result, -9);
    EXPECT_EQ(recording::take(), heard({update_trace(2, "SET"), set_status(),
                                        error("app_cg_update_dev_check_result",
                                              "update dev[1] slot[3] sslot[0], stat[2] op[SET], rv -9")}));
    EXPECT_EQ(run("update_dev", {1, 3, 0, 2, 1}).result, 0);
}

TEST_P(DebugCommandsTest, UpdateDevTakesItsFiveNumbersInOrder)
{
    EXPECT_EQ(run("update_dev", {-1, 2, 3, 4, 5}).output,
              "begin set_chk_ack, devid -1 slotid 2 sslotid 3 stat 4 op 5\n");
}
