// The three connections: their states, the subscriptions made when all are up, and the end of the process
// when one comes back in any other way than as it was.
#include "app_cg/connections.h"

#include <cstdio>
#include <cstdlib>

#include "app_cg/card_nodes.h"
#include "app_cg/startup.h"
#include "app_cg_dbg/logging.h"
#include "fixture.h"

using namespace lines;

namespace
{

constexpr char SUBSCRIBE_ROLE[] = "vx_mom_subscribe(1, p_dev.dp_lib_grole{})";
constexpr char SUBSCRIBE_CARDS[] = "vx_mom_subscribe(1, p_dev.card_info{index={}})";
constexpr char SUBSCRIBE_ACKS[] = "vx_mom_subscribe(1, p_libpub.app_cg_card_check_ack{index={}})";

std::string scan_summary(const std::string &text)
{
    return fatal("app_cg_deny_check_init_wait_obj", text);
}

std::string missing_folder()
{
    return error("app_cg_deny_check_init_wait_obj", "Folder path(/etc/app_cg/deny_check/) error.\n");
}

std::vector<int32_t> states()
{
    return {app_cg_db_state[0].state, app_cg_db_state[1].state, app_cg_db_state[2].state};
}

void all_connected()
{
    for (app_cg_db_state_t &row : app_cg_db_state) {
        row.state = 1;
    }
}

Lines state_set(int32_t db, int32_t state)
{
    const std::string text = "db " + std::to_string(db) + " state " + std::to_string(state);
    return {warn("app_cg_set_db_state", text), info("app_cg_set_db_state", text + " match")};
}

std::string not_connected(int32_t db)
{
    return warn("app_cg_is_all_db_connected", "db " + std::to_string(db) + " not connected");
}

// A validation over the module m1.
Lines validated()
{
    return {warn("app_cg_db_validate", "enter"),
            scan_summary("module: num[1], bmp[1], name: [m1|]"),
            SUBSCRIBE_ROLE,
            SUBSCRIBE_CARDS,
            SUBSCRIBE_ACKS,
            warn("app_cg_db_validate", "leave")};
}

Lines connected(int32_t db, const Lines &consequence)
{
    return Lines{warn("app_cg_client_connect_db", "db " + std::to_string(db))} + state_set(db, 1) +
           consequence + Lines{warn("app_cg_client_connect_db", "leave")};
}

Lines reconnected(int32_t db, const Lines &consequence)
{
    return Lines{warn("app_cg_reconnect_db", "con change, db " + std::to_string(db) + " type 2")} +
           state_set(db, 1) + consequence;
}

Lines all_up()
{
    return Lines{warn("app_cg_is_all_db_connected", "all db connected")} + validated();
}

class ConnectionsTest : public VerbosityTest
{
protected:
    void SetUp() override
    {
        VerbosityTest::SetUp();
        fake_fs::add_module("m1");
    }
};

using ConnectionsDeathTest = DaemonTest;

void print_journal_and_states()
{
    for (const std::string &line : recording::journal()) {
        (void)std::fprintf(stderr, "%s\n", line.c_str());
    }
    (void)std::fprintf(stderr, "states %d %d %d\n", states()[0], states()[1], states()[2]);
}

// What a process does that is told of this change.
void change(int32_t db, int32_t type)
{
    (void)std::atexit(print_journal_and_states);
    (void)app_cg_reconnect_db(recording::context(), db, type);
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Verbosities, ConnectionsTest, testing::ValuesIn(ALL_VERBOSITIES), verbosity_name);

TEST_P(ConnectionsTest, TheTableHoldsTheThreeDatabasesInOrder)
{
    ASSERT_EQ(std::size(app_cg_db_state), 3U);
    EXPECT_EQ(app_cg_db_state[0].db, 1);
    EXPECT_EQ(app_cg_db_state[1].db, 28);
    EXPECT_EQ(app_cg_db_state[2].db, 33);
}

TEST_P(ConnectionsTest, AStateIsSetByDatabaseNumber)
{
    app_cg_set_db_state(28, 1);
    EXPECT_EQ(states(), (std::vector<int32_t>{0, 1, 0}));
    app_cg_set_db_state(33, 1);
    app_cg_set_db_state(28, 0);
    EXPECT_EQ(states(), (std::vector<int32_t>{0, 0, 1}));
    EXPECT_EQ(recording::journal(), heard(state_set(28, 1) + state_set(33, 1) + state_set(28, 0)));
}

TEST_P(ConnectionsTest, AnUnknownDatabaseIsToldAndIgnored)
{
    app_cg_set_db_state(2, 1);
    EXPECT_EQ(states(), (std::vector<int32_t>{0, 0, 0}));
    EXPECT_EQ(recording::journal(), heard({warn("app_cg_set_db_state", "db 2 state 1")}));
}

TEST_P(ConnectionsTest, TheFirstMissingDatabaseInTableOrderIsNamed)
{
    EXPECT_EQ(app_cg_is_all_db_connected(), 0);
    app_cg_db_state[0].state = 1;
    EXPECT_EQ(app_cg_is_all_db_connected(), 0);
    app_cg_db_state[1].state = 1;
    EXPECT_EQ(app_cg_is_all_db_connected(), 0);
    app_cg_db_state[2].state = 1;
    EXPECT_EQ(app_cg_is_all_db_connected(), 1);
    EXPECT_EQ(recording::journal(), heard({not_connected(1), not_connected(28), not_connected(33),
                                           warn("app_cg_is_all_db_connected", "all db connected")}));
}

TEST_P(ConnectionsTest, TheThirdConnectionValidatesInWhateverOrderTheyCome)
{
    EXPECT_EQ(app_cg_client_connect_db(recording::context(), 28, nullptr), 0);
    EXPECT_EQ(app_cg_client_connect_db(recording::context(), 1, nullptr), 0);
    EXPECT_EQ(app_cg_client_connect_db(recording::context(), 33, nullptr), 0);
    EXPECT_EQ(recording::journal(), heard(connected(28, {not_connected(1)}) +
                                          connected(1, {not_connected(33)}) + connected(33, all_up())));
    EXPECT_EQ(fake_fs::calls(), (Lines{"opendir(/etc/app_cg/deny_check/)", "closedir()"}));
}

TEST_P(ConnectionsTest, AConnectionReportedAgainValidatesAgain)
{
    all_connected();
    EXPECT_EQ(app_cg_client_connect_db(nullptr, 1, nullptr), 0);
    EXPECT_EQ(app_cg_client_connect_db(nullptr, 1, nullptr), 0);
    EXPECT_EQ(recording::journal(), heard(connected(1, all_up()) + connected(1, all_up())));
}

TEST_P(ConnectionsTest, AConnectionOfAnUnknownDatabaseChangesNothing)
{
    EXPECT_EQ(app_cg_client_connect_db(nullptr, 5, nullptr), 0);
    EXPECT_EQ(recording::journal(),
              heard({warn("app_cg_client_connect_db", "db 5"), warn("app_cg_set_db_state", "db 5 state 1"),
                     not_connected(1), warn("app_cg_client_connect_db", "leave")}));
}

TEST_P(ConnectionsTest, ALossIsNotedAndNothingElse)
{
    all_connected();
    g_app_cg_global.grole = 1;
    EXPECT_EQ(app_cg_db_validate(), 0);
    ASSERT_TRUE(recording::deliver_written(records::card(1, 3, 2).online()));
    const CardNode *node = app_cg_node_pos_search(1, 3, 2);
    ASSERT_NE(node, nullptr);
    const CardNode before = *node;
    (void)recording::take();
    EXPECT_EQ(app_cg_disconnect_db(recording::context(), 28), 0);
    EXPECT_EQ(states(), (std::vector<int32_t>{1, 0, 1}));
    EXPECT_EQ(recording::journal(),
              heard(Lines{warn("app_cg_disconnect_db", "enter db 28")} + state_set(28, 0)));
    EXPECT_EQ(g_app_cg_global.grole, 1);
    EXPECT_EQ(app_cg_node_pos_search(1, 3, 2), node);
    EXPECT_NE(before.timer, nullptr);
    EXPECT_EQ(node->timer, before.timer);
    EXPECT_EQ(node->wait_obj.app_cg_wait_obj_bmp, 1U) << "m1 may still answer";
    EXPECT_EQ(recording::armed_timers(), (Lines{"t1"}));
    EXPECT_TRUE(recording::deliver_subscribed("p_dev.card_info")) << "subscriptions stay";
}

TEST_P(ConnectionsTest, ACompletedReconnectionValidatesWhenTheOthersAreUp)
{
    all_connected();
    EXPECT_EQ(app_cg_disconnect_db(nullptr, 28), 0);
    (void)recording::take();
    EXPECT_EQ(app_cg_reconnect_db(nullptr, 28, 2), 0);
    EXPECT_EQ(recording::journal(), heard(reconnected(28, all_up())));
}

TEST_P(ConnectionsTest, ACompletedReconnectionWaitsForTheOthers)
{
    all_connected();
    EXPECT_EQ(app_cg_disconnect_db(nullptr, 28), 0);
    EXPECT_EQ(app_cg_disconnect_db(nullptr, 33), 0);
    (void)recording::take();
    EXPECT_EQ(app_cg_reconnect_db(nullptr, 28, 2), 0);
    EXPECT_EQ(states(), (std::vector<int32_t>{1, 1, 0}));
    EXPECT_EQ(recording::journal(), heard(reconnected(28, {not_connected(33)})));
    (void)recording::take();
    EXPECT_EQ(app_cg_reconnect_db(nullptr, 33, 2), 0);
    EXPECT_EQ(recording::journal(), heard(reconnected(33, all_up())));
}

TEST_P(ConnectionsTest, WithoutTheFolderOnlyRoleAndCardsAreSubscribed)
{
    fake_fs::set_up();
    g_app_cg_global.wait_obj.app_cg_wait_obj_num = 3; // left by an earlier scan
    g_app_cg_global.wait_obj.app_cg_wait_obj_bmp = 7;
    EXPECT_EQ(app_cg_db_validate(), 0);
    EXPECT_EQ(recording::journal(),
              heard({warn("app_cg_db_validate", "enter"), missing_folder(), SUBSCRIBE_ROLE, SUBSCRIBE_CARDS,
                     warn("app_cg_db_validate", "leave")}));
    EXPECT_EQ(g_app_cg_global.wait_obj.app_cg_wait_obj_num, 0);
    EXPECT_EQ(g_app_cg_global.wait_obj.app_cg_wait_obj_bmp, 0U);
}

TEST_P(ConnectionsTest, WithAnEmptyFolderOnlyRoleAndCardsAreSubscribed)
{
    fake_fs::remove_module("m1");
    EXPECT_EQ(app_cg_db_validate(), 0);
    EXPECT_EQ(recording::journal(),
              heard({warn("app_cg_db_validate", "enter"), scan_summary("module: num[0], bmp[0], name: []"),
                     SUBSCRIBE_ROLE, SUBSCRIBE_CARDS, warn("app_cg_db_validate", "leave")}));
    EXPECT_FALSE(recording::deliver_subscribed("p_libpub.app_cg_card_check_ack"));
}

TEST_P(ConnectionsTest, EachRecordTypeGoesToItsOwnCallback)
{
    EXPECT_EQ(app_cg_db_validate(), 0);
    app_cg_verbosity = 1;
    (void)recording::take();
    EXPECT_TRUE(recording::deliver_nothing("p_dev.dp_lib_grole"));
    EXPECT_NE(recording::take().front().find(" app_cg_dp_grole_pro: "), std::string::npos);
    EXPECT_TRUE(recording::deliver_nothing("p_dev.card_info"));
    EXPECT_NE(recording::take().front().find(" app_cg_install_node_pmsg_f: "), std::string::npos);
    EXPECT_TRUE(recording::deliver_nothing("p_libpub.app_cg_card_check_ack"));
    EXPECT_NE(recording::take().front().find(" app_cg_check_ack_pmsg_f: "), std::string::npos);
}

namespace
{

// A subscription that is refused: its repetitions, and nothing of those after it.
Lines refused(const char *subscription, bool silent)
{
    return silent ? Lines{subscription, subscription}
                  : Lines{subscription, subscription, error("app_cg_deny_check_init", "failed,rv -2"),
                          subscription};
}

Lines validation_with(const Lines &subscriptions)
{
    return Lines{warn("app_cg_db_validate", "enter"), scan_summary("module: num[1], bmp[1], name: [m1|]")} +
           subscriptions + Lines{warn("app_cg_db_validate", "leave")};
}

} // namespace

TEST_P(ConnectionsTest, ARefusedSubscriptionIsRepeatedAndTheLaterOnesAreSkipped)
{
    const bool silent = GetParam() == 0;
    const char *const subscriptions[] = {SUBSCRIBE_ROLE, SUBSCRIBE_CARDS, SUBSCRIBE_ACKS};
    for (std::size_t failing = 0; failing < std::size(subscriptions); failing++) {
        SCOPED_TRACE(subscriptions[failing]);
        SetUp();
        recording::script("vx_mom_subscribe", std::vector<int32_t>(failing, 0));
        recording::script("vx_mom_subscribe", {-1, -2, -3});
        EXPECT_EQ(app_cg_db_validate(), 0);
        const Lines before(subscriptions, subscriptions + failing);
        EXPECT_EQ(recording::journal(),
                  heard(validation_with(before + refused(subscriptions[failing], silent))));
    }
}

TEST_P(ConnectionsTest, ASubscriptionAcceptedAtTheLastAttemptStillEndsTheRound)
{
    const bool silent = GetParam() == 0;
    recording::script("vx_mom_subscribe", silent ? std::vector<int32_t>{-1} : std::vector<int32_t>{-1, -2});
    EXPECT_EQ(app_cg_db_validate(), 0);
    EXPECT_EQ(recording::journal(), heard(validation_with(refused(SUBSCRIBE_ROLE, silent))));
    EXPECT_TRUE(recording::deliver_subscribed("p_dev.dp_lib_grole"));
    EXPECT_FALSE(recording::deliver_subscribed("p_dev.card_info"));
}

TEST_P(ConnectionsTest, AFailedRoundIsMadeGoodByTheNextReconnection)
{
    all_connected();
    recording::script("vx_mom_subscribe", {-1, -1, -1});
    EXPECT_EQ(app_cg_db_validate(), 0);
    recording::reset();
    EXPECT_EQ(app_cg_reconnect_db(nullptr, 1, 2), 0);
    EXPECT_EQ(recording::journal(), heard(reconnected(1, all_up())));
}

TEST_P(ConnectionsTest, AReconnectionScansTheFolderAgain)
{
    all_connected();
    EXPECT_EQ(app_cg_db_validate(), 0);
    fake_fs::remove_module("m1");
    fake_fs::add_module("m2");
    fake_fs::add_module("m3");
    EXPECT_EQ(app_cg_reconnect_db(nullptr, 33, 2), 0);
    EXPECT_EQ(g_app_cg_global.wait_obj.app_cg_wait_obj_num, 2);
    EXPECT_STREQ(g_app_cg_global.wait_obj.app_cg_wait_obj_name[0], "m2");
}

TEST_P(ConnectionsTest, InstallingTheCallbacksPassesTheResultOn)
{
    EXPECT_EQ(app_cg_client_set_disconnect_cb(28), 0);
    EXPECT_EQ(app_cg_client_set_reconnect_cb(33), 0);
    recording::script("vx_mom_client_set_disconnect_cb", {-6});
    recording::script("vx_mom_client_set_reconnect_cb", {7});
    EXPECT_EQ(app_cg_client_set_disconnect_cb(1), -6);
    EXPECT_EQ(app_cg_client_set_reconnect_cb(28), 7);
    char context[32];
    (void)std::snprintf(context, sizeof context, "%p", static_cast<void *>(recording::context()));
    EXPECT_EQ(
        recording::journal(),
        heard({"vx_mom_client_set_disconnect_cb(28)", "vx_mom_client_set_reconnect_cb(33)",
               "vx_mom_client_set_disconnect_cb(1)",
               error("app_cg_client_set_disconnect_cb", "vx_mom_client_set_disconnect_cb global " +
                                                            std::string(context) + " type 1 failed, rv -6"),
               "vx_mom_client_set_reconnect_cb(28)",
               error("app_cg_client_set_reconnect_cb", "vx_mom_client_set_reconnect_cb global " +
                                                           std::string(context) + " type 28 failed, rv 7")}));
}

TEST_P(ConnectionsTest, TheCallbacksInstalledAreLossAndReturn)
{
    EXPECT_EQ(app_cg_client_set_disconnect_cb(28), 0);
    EXPECT_EQ(app_cg_client_set_reconnect_cb(28), 0);
    app_cg_db_state[1].state = 1;
    EXPECT_TRUE(recording::disconnect(28));
    EXPECT_EQ(states(), (std::vector<int32_t>{0, 0, 0}));
    EXPECT_TRUE(recording::reconnect(28, 2));
    EXPECT_EQ(states(), (std::vector<int32_t>{0, 1, 0}));
}

TEST_F(ConnectionsDeathTest, AnyOtherChangeEndsTheProcessWith77)
{
    all_connected();
    app_cg_verbosity = 4;
    for (const int32_t db : {1, 28, 33, 7}) {
        for (const int32_t type : {1, 0, 3, -1}) {
            SCOPED_TRACE(type);
            // The change is told, and nothing is done after it.
            const std::string told = "^log 80 app_cg.cpp app_cg_reconnect_db: con change, db " +
                                     std::to_string(db) + " type " + std::to_string(type) +
                                     "\nstates 1 1 1\n$";
            EXPECT_EXIT(change(db, type), testing::ExitedWithCode(77), told);
        }
    }
}

TEST_F(ConnectionsDeathTest, AnyOtherChangeEndsTheProcessAlsoWhenNothingIsConnected)
{
    EXPECT_EXIT(change(1, 1), testing::ExitedWithCode(77), "^states 0 0 0\n$");
}
