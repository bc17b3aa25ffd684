// The steps between `main` and the loop, called by themselves. What follows from them in `main` is the
// subject of main_test.
#include "app_cg/startup.h"

#include "app_cg/connections.h"
#include "app_cg_dbg/logging.h"
#include "fixture.h"

using namespace lines;

namespace
{

constexpr char HAM_MARKER[] = "/var/run/app_cg_ham.txt";

class StartupTest : public VerbosityTest
{
};

Lines without_commands(Lines lines)
{
    std::erase_if(lines, [](const std::string &line) { return line.rfind("ssat_reg_mod_cmd", 0) == 0; });
    return lines;
}

Lines independent_steps(const Lines &registration)
{
    return Lines{info("app_cg_indep_init", "enter"), info("app_cg_ssat_init", "enter", DBG),
                 "ssat_lib_init(app_cg)", info("app_cg_ssat_init", "leave", DBG)} +
           registration;
}

std::vector<int32_t> states()
{
    return {app_cg_db_state[0].state, app_cg_db_state[1].state, app_cg_db_state[2].state};
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Verbosities, StartupTest, testing::ValuesIn(ALL_VERBOSITIES), verbosity_name);

TEST_P(StartupTest, TheIndependentPartRegistersCommandsThenTheProcess)
{
    EXPECT_EQ(app_cg_indep_init(), 0);
    EXPECT_EQ(
        without_commands(recording::journal()),
        heard(independent_steps({"reg_process_exit_action(0, 2)", info("app_cg_indep_init", "leave")})));
}

TEST_P(StartupTest, ARefusedRegistrationIsPassedOn)
{
    for (const int32_t result : {-4, 1}) {
        (void)recording::take();
        recording::script("reg_process_exit_action", {result});
        EXPECT_EQ(app_cg_indep_init(), result);
        EXPECT_EQ(without_commands(recording::journal()),
                  heard(independent_steps(
                      {"reg_process_exit_action(0, 2)", error("app_cg_indep_init", "init ham fail")})));
    }
}

TEST_P(StartupTest, WithTheMarkerNothingIsRegisteredAndTheFileIsClosed)
{
    fake_fs::write(HAM_MARKER, "");
    const std::size_t descriptors = open_descriptors();
    EXPECT_EQ(app_cg_indep_init(), 0);
    EXPECT_EQ(without_commands(recording::journal()),
              heard(independent_steps({info("app_cg_indep_init", "leave")})));
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(fake_fs::calls(), Lines{"open(/var/run/app_cg_ham.txt, O_RDWR)"});
}

TEST_P(StartupTest, SynchronousConnectionsDoNotCountAsConnected)
{
    EXPECT_EQ(app_cg_init(), 0);
    EXPECT_EQ(states(), (std::vector<int32_t>{0, 0, 0}));
}

TEST_P(StartupTest, NoAsynchronousConnectionIsAskedForWhenASynchronousOneFails)
{
    recording::script("vx_mom_client_connect_sync", {0, -8});
    EXPECT_EQ(app_cg_init(), -8);
    for (const int32_t db : {1, 33, 28}) {
        EXPECT_FALSE(recording::connect(db)) << db;
        EXPECT_FALSE(recording::disconnect(db)) << db;
    }
    EXPECT_EQ(recording::journal().back(), GetParam() > 0
                                               ? error("app_cg_init", "connect dev global sync failed, rv -8")
                                               : "vx_mom_client_connect_sync(33)");
}

TEST_P(StartupTest, EachConnectionCallbackReportsItsOwnDatabase)
{
    struct Row {
        int32_t (*callback)(void *, void *);
        int32_t db;
        std::vector<int32_t> states;
        int32_t missing; // the first database that is not connected
    };
    const Row rows[] = {
        {app_cg_connect_host_cb, 1, {1, 0, 0}, 28},
        {app_cg_connect_cap_cb, 28, {0, 1, 0}, 1},
        {app_cg_connect_dev_cb, 33, {0, 0, 1}, 1},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.db);
        SetUp();
        const std::string db = "db " + std::to_string(row.db);
        EXPECT_EQ(row.callback(recording::context(), nullptr), 0);
        EXPECT_EQ(states(), row.states);
        EXPECT_EQ(
            recording::journal(),
            heard({warn("app_cg_client_connect_db", db), warn("app_cg_set_db_state", db + " state 1"),
                   info("app_cg_set_db_state", db + " state 1 match"),
                   warn("app_cg_is_all_db_connected", "db " + std::to_string(row.missing) + " not connected"),
                   warn("app_cg_client_connect_db", "leave")}));
    }
}

TEST_P(StartupTest, TheConnectionsAskedForCarryTheCallbacksOfTheirDatabases)
{
    EXPECT_EQ(app_cg_init(), 0);
    EXPECT_TRUE(recording::connect(33));
    EXPECT_EQ(states(), (std::vector<int32_t>{0, 0, 1}));
    EXPECT_TRUE(recording::connect(1));
    EXPECT_EQ(states(), (std::vector<int32_t>{1, 0, 1}));
    EXPECT_TRUE(recording::disconnect(33));
    EXPECT_EQ(states(), (std::vector<int32_t>{1, 0, 0}));
    EXPECT_TRUE(recording::connect(28));
    EXPECT_EQ(states(), (std::vector<int32_t>{1, 1, 0}));
    EXPECT_TRUE(recording::reconnect(33, 2));
    EXPECT_EQ(states(), (std::vector<int32_t>{1, 1, 1}));
}

TEST(InitialGlobalsTest, TheDaemonStartsWithTheseValues)
{
    const InitialGlobals &globals = initial_globals();
    EXPECT_EQ(globals.verbosity, 1U);
    EXPECT_EQ(globals.collect_saved_stdout, -1);
    EXPECT_EQ(globals.collect_fd, -1);
    EXPECT_EQ(globals.db_state, (std::vector<int32_t>{1, 0, 28, 0, 33, 0}));
}

TEST(InitialGlobalsTest, ItsStateIsAllZero)
{
    const app_cg_global_t &global = initial_globals().global;
    EXPECT_EQ(global.grole, 0);
    EXPECT_EQ(global.grole_ready, 0);
    for (const timeval &time :
         {global.time_run, global.time_init_global, global.time_ham_init, global.time_init_st}) {
        EXPECT_EQ(time.tv_sec, 0);
        EXPECT_EQ(time.tv_usec, 0);
    }
    EXPECT_EQ(global.zlog_handle, nullptr);
    EXPECT_EQ(global.wait_obj.app_cg_wait_obj_num, 0);
    EXPECT_EQ(global.wait_obj.app_cg_wait_obj_bmp, 0U);
    EXPECT_EQ(global.card_nodes.next, nullptr);
    EXPECT_EQ(global.global, nullptr);
}
