// The recording platform itself: what the other tests compare with must be right.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <array>
#include <fstream>
#include <iterator>

#include "fixture.h"
#include "ham.h"
#include "vx_zlog.h"

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

namespace
{

int32_t note_argument(vx_thread_t *t)
{
    recording::note("argument " + std::to_string(*static_cast<int *>(t->arg)) + " at " +
                    std::to_string(recording::now().count()));
    return 0;
}

// Arms a second timer, due a second after its own moment.
int32_t arm_again(vx_thread_t *t)
{
    (void)vx_thread_add_timer_timeval(recording::context(), note_argument, t->arg, {1, 0});
    return 0;
}

int32_t cancel_itself(vx_thread_t *t)
{
    vx_thread_cancel(t);
    return 0;
}

int32_t note_message(void *arg, vx_mom_pmsg_t *pmsg)
{
    (void)arg;
    const std::string cmd = std::to_string(pmsg->cmd) + " ";
    const bool has_result = pmsg->cmd == VX_MOM_CMD_SET || pmsg->cmd == VX_MOM_CMD_HMSET;
    if (has_result && pmsg->result != nullptr) {
        recording::note(cmd + "error " + std::to_string(pmsg->result->error_code) + " " +
                        recording::text_of(pmsg->result->record));
    } else {
        recording::note(cmd + recording::text_of(has_result ? nullptr : pmsg->record));
    }
    return 0;
}

void note_completion(void *arg, int32_t rv)
{
    recording::note(std::string("done ") + (arg == nullptr ? "" : "arg ") + std::to_string(rv));
}

int32_t note_connection(void *first, void *second)
{
    recording::note(std::string(first == recording::context() ? "up" : "wrong context") +
                    (second == nullptr ? "" : " with argument"));
    return 0;
}

int32_t note_loss(void *first, int32_t db)
{
    recording::note((first == recording::context() ? "lost " : "wrong context ") + std::to_string(db));
    return 0;
}

int32_t note_return(void *first, int32_t db, int32_t type)
{
    recording::note((first == recording::context() ? "back " : "wrong context ") + std::to_string(db) + " " +
                    std::to_string(type));
    return 0;
}

int32_t subtract(int32_t a, int32_t b)
{
    return a - b;
}

class RecordingPlatformTest : public testing::Test
{
protected:
    void SetUp() override { recording::reset(); }
    void TearDown() override { recording::reset(); }

    vx_global_t *const global = recording::context();
};

vx_thread_t *arm(int *argument, timeval timeout, vx_thread_f f = note_argument)
{
    return vx_thread_add_timer_timeval(recording::context(), f, argument, timeout);
}

} // namespace

TEST_F(RecordingPlatformTest, TheClockStepsFromTimerToTimerTiesInArmingOrder)
{
    std::array numbers{1, 2, 3};
    arm(&numbers[0], {2, 0});
    arm(&numbers[1], {1, 500000});
    arm(&numbers[2], {2, 0});
    (void)recording::take();

    recording::advance(1s);
    EXPECT_EQ(recording::take(), Lines{});
    recording::advance(1s);
    EXPECT_EQ(recording::take(), (Lines{"timer t2 fires", "argument 2 at 1500000", "timer t1 fires",
                                        "argument 1 at 2000000", "timer t3 fires", "argument 3 at 2000000"}));
    EXPECT_EQ(recording::now(), 2s);
    EXPECT_EQ(recording::armed_timers(), Lines{});
}

TEST_F(RecordingPlatformTest, ATimerArmedByACallbackIsDueFromThatMoment)
{
    int number = 7;
    arm(&number, {1, 0}, arm_again);
    recording::advance(5s);
    EXPECT_EQ(recording::journal(),
              (Lines{"vx_thread_add_timer(1.000000) = t1", "timer t1 fires",
                     "vx_thread_add_timer(1.000000) = t2", "timer t2 fires", "argument 7 at 2000000"}));
    EXPECT_EQ(recording::now(), 5s);
}

TEST_F(RecordingPlatformTest, ACancelledTimerIsGoneAndTheOthersStay)
{
    std::array numbers{1, 2};
    vx_thread_t *first = arm(&numbers[0], {1, 0});
    arm(&numbers[1], {1, 0});
    EXPECT_EQ(recording::armed_timers(), (Lines{"t1", "t2"}));
    EXPECT_EQ(recording::timer_argument("t2"), &numbers[1]);
    EXPECT_EQ(recording::timer_argument("t3"), nullptr);
    vx_thread_cancel(first);
    recording::advance(1s);
    EXPECT_EQ(recording::journal(),
              (Lines{"vx_thread_add_timer(1.000000) = t1", "vx_thread_add_timer(1.000000) = t2",
                     "vx_thread_cancel(t1)", "timer t2 fires", "argument 2 at 1000000"}));
}

TEST_F(RecordingPlatformTest, ADeadTimerCannotBeCancelled)
{
    int number = 1;
    vx_thread_t *t = arm(&number, {0, 1}, cancel_itself);
    recording::advance(1us);
    vx_thread_cancel(t);
    vx_thread_cancel(nullptr);
    EXPECT_EQ(recording::journal(),
              (Lines{"vx_thread_add_timer(0.000001) = t1", "timer t1 fires", "vx_thread_cancel(unknown)",
                     "vx_thread_cancel(unknown)", "vx_thread_cancel(unknown)"}));
}

TEST_F(RecordingPlatformTest, ARefusedTimerIsNullAndTakesNoName)
{
    int number = 1;
    recording::script("vx_thread_add_timer", {-1});
    EXPECT_EQ(arm(&number, {300, 0}), nullptr);
    EXPECT_NE(arm(&number, {300, 0}), nullptr);
    EXPECT_EQ(recording::journal(),
              (Lines{"vx_thread_add_timer(300.000000) = null", "vx_thread_add_timer(300.000000) = t1"}));
}

TEST_F(RecordingPlatformTest, ResultsComeInTurnThenTheConstantOne)
{
    const records::BackupRecord made = records::backup(0, 0, 0);
    records::BackupRecord record = made;
    recording::script("vx_mom_del", {-5, 3});
    EXPECT_EQ(vx_mom_del(global, 1, record, nullptr, nullptr), -5);
    EXPECT_EQ(vx_mom_del(global, 1, record, nullptr, nullptr), 3);
    EXPECT_EQ(vx_mom_del(global, 1, record, nullptr, nullptr), 0);
    recording::script_always("vx_mom_del", -7);
    EXPECT_EQ(vx_mom_del(global, 1, record, nullptr, nullptr), -7);
    EXPECT_EQ(vx_mom_del(global, 1, record, nullptr, nullptr), -7);
    EXPECT_EQ(vx_mom_set_sync(global, 1, record), 0);
}

TEST_F(RecordingPlatformTest, AnActionRunsInsideTheCallOnce)
{
    records::BackupRecord record = records::backup(1, 2, 3);
    recording::script_action("vx_mom_exists_sync", [] { recording::note("inside"); });
    recording::script("vx_mom_exists_sync", {1});
    EXPECT_EQ(vx_mom_exists_sync(global, 1, record), 1);
    EXPECT_EQ(vx_mom_exists_sync(global, 1, record), 0);
    const std::string call =
        "vx_mom_exists_sync(1, p_libpub.app_cg_card_bak_info{index={devid=1 slotid=2 sslotid=3}})";
    EXPECT_EQ(recording::journal(), (Lines{call, "inside", call}));
}

TEST_F(RecordingPlatformTest, RecordsShowEveryFieldThatIsNotAtItsDefault)
{
    PDev__LibCardRole first = P_DEV__LIB_CARD_ROLE__INIT;
    first.slotid = -1;
    first.valid = 1;
    PDev__LibCardRole second = P_DEV__LIB_CARD_ROLE__INIT;
    std::array roles{&first, &second};
    std::array<uint8_t, 3> mac{0x00, 0x1f, 0xa0};
    PDev__CardInfoIndex empty = P_DEV__CARD_INFO_INDEX__INIT;
    PDev__DpLibGrole role = P_DEV__DP_LIB_GROLE__INIT;
    role.my_grole = P_DEV__DM_ROLE_E__DM_ROLE_MASTER;
    role.global_master = &empty;
    role.sysmac = {mac.size(), mac.data()};
    role.n_card_role = roles.size();
    role.card_role = roles.data();
    EXPECT_EQ(recording::text_of(&role.base),
              "p_dev.dp_lib_grole{my_grole=DM_ROLE_MASTER global_master={} sysmac=001fa0 "
              "card_role=[{slotid=-1 valid=true} {}]}");
    EXPECT_EQ(recording::text_of(records::card(1, 3, 0).online().type(7)),
              "p_dev.card_info{index={devid=1 slotid=3} config_dev_type=7 is_online=true "
              "static_info={index={} node_type=3}}");
    EXPECT_EQ(recording::text_of(records::ack(0, 0, 2, "m1").deny("too hot")),
              "p_libpub.app_cg_card_check_ack{index={t_sslotid=2 mod_name=\"m1\"} ret=1 reason=\"too hot\"}");
    EXPECT_EQ(recording::text_of(nullptr), "null");
}

TEST_F(RecordingPlatformTest, AnEnumerationWithoutANameIsItsNumber)
{
    PLibpub__AppCgCardCheckInfo request = P_LIBPUB__APP_CG_CARD_CHECK_INFO__INIT;
    const int32_t number = 99;
    std::copy_n(reinterpret_cast<const char *>(&number), sizeof number,
                reinterpret_cast<char *>(&request.node_type));
    EXPECT_EQ(recording::text_of(&request.base), "p_libpub.app_cg_card_check_info{node_type=99}");
}

TEST_F(RecordingPlatformTest, WritesShowTheirFieldsAndWhatIsUnusual)
{
    records::BackupRecord record = records::backup(0, 0, 0);
    const std::array<int32_t, 3> fields{6, 7, 8};
    int argument = 0;
    (void)vx_mom_hmset(global, 28, record, fields.data(), 3, nullptr, nullptr);
    (void)vx_mom_pdel(global, 1, record, 3, nullptr, &argument);
    (void)vx_mom_set(nullptr, 33, record, note_completion, nullptr);
    (void)vx_mom_set_sync(global, 33, record);
    const std::string text = "p_libpub.app_cg_card_bak_info{index={}}";
    EXPECT_EQ(recording::journal(),
              (Lines{"vx_mom_hmset(28, " + text + ", [6 7 8])", "vx_mom_pdel(1, " + text + ", 3) arg=set",
                     "vx_mom_set(33, " + text + ") done=set context=wrong", "done 0",
                     "vx_mom_set_sync(33, " + text + ")"}));
}

TEST_F(RecordingPlatformTest, NotificationsReachTheSubscriptionOfTheirType)
{
    records::BackupRecord pattern = records::backup(0, 0, 0);
    EXPECT_FALSE(recording::deliver_written(pattern));
    recording::script("vx_mom_subscribe", {-1});
    EXPECT_EQ(vx_mom_subscribe(global, 1, pattern, 0, note_message, nullptr), -1);
    EXPECT_FALSE(recording::deliver_written(pattern)) << "a refused subscription delivers nothing";

    EXPECT_EQ(vx_mom_subscribe(global, 1, pattern, 2, note_message, nullptr), 0);
    records::BackupRecord record = records::backup(1, 2, 3);
    EXPECT_TRUE(recording::deliver_written(record));
    EXPECT_TRUE(recording::deliver_written(record, VX_MOM_CMD_HMSET));
    EXPECT_TRUE(recording::deliver_deleted(record));
    EXPECT_TRUE(recording::deliver_subscribed("p_libpub.app_cg_card_bak_info"));
    EXPECT_TRUE(recording::deliver_failed("p_libpub.app_cg_card_bak_info", -9));
    EXPECT_TRUE(recording::deliver_nothing("p_libpub.app_cg_card_bak_info"));
    EXPECT_FALSE(recording::deliver_subscribed("p_dev.card_info"));
    const std::string text = "p_libpub.app_cg_card_bak_info{index={devid=1 slotid=2 sslotid=3}}";
    const std::string subscribe = "vx_mom_subscribe(1, p_libpub.app_cg_card_bak_info{index={}})";
    EXPECT_EQ(recording::journal(),
              (Lines{subscribe, subscribe + " flags=2", "4 error 0 " + text, "6 error 0 " + text, "3 " + text,
                     "29 null", "4 error -9 null", "4 null"}));
}

TEST_F(RecordingPlatformTest, AScanDeliversItsTypeAndFailsAfterwards)
{
    records::BackupRecord pattern = records::backup(0, 0, 0);
    recording::script_scan(records::backup(1, 0, 0));
    recording::script_scan(records::card(1, 1, 1));
    recording::script_scan(records::backup(2, 0, 0), VX_MOM_CMD_SET);
    recording::script("vx_mom_scan_sync", {-2});
    EXPECT_EQ(vx_mom_scan_sync(global, 1, pattern, 0, note_message, nullptr), -2);
    const std::string type = "p_libpub.app_cg_card_bak_info";
    EXPECT_EQ(recording::journal(),
              (Lines{"vx_mom_scan_sync(1, " + type + "{index={}})", "1 " + type + "{index={devid=1}}",
                     "4 error 0 " + type + "{index={devid=2}}"}));
}

TEST_F(RecordingPlatformTest, WholeReadsComeAsScriptedAndMustBeFreed)
{
    records::RoleRecord role = records::role(P_DEV__DM_ROLE_E__DM_ROLE_SLAVE);
    recording::script_hgetall(0, role);
    recording::script_hgetall(-3, nullptr);
    vx_mom_result_t *first = vx_mom_hgetall_sync(global, 1, role);
    vx_mom_result_t *second = vx_mom_hgetall_sync(global, 1, role);
    vx_mom_result_t *third = vx_mom_hgetall_sync(global, 1, role);
    recording::script("vx_mom_hgetall_sync", {1});
    EXPECT_EQ(vx_mom_hgetall_sync(global, 1, role), nullptr);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(recording::text_of(first->record), "p_dev.dp_lib_grole{my_grole=DM_ROLE_SLAVE}");
    EXPECT_EQ(second->error_code, -3);
    EXPECT_EQ(third->error_code, 0);
    EXPECT_EQ(third->record, nullptr);
    EXPECT_EQ(recording::unfreed_results(), 3U);
    (void)recording::take();
    vx_mom_hash_res_free(second);
    vx_mom_hash_res_free(first);
    vx_mom_hash_res_free(third);
    vx_mom_hash_res_free(third);
    vx_mom_hash_res_free(nullptr);
    EXPECT_EQ(recording::unfreed_results(), 0U);
    EXPECT_EQ(recording::journal(),
              (Lines{"vx_mom_hash_res_free()", "vx_mom_hash_res_free()", "vx_mom_hash_res_free()",
                     "vx_mom_hash_res_free() result=unknown", "vx_mom_hash_res_free() result=null"}));
}

TEST_F(RecordingPlatformTest, ConnectionCallbacksRunWhenTold)
{
    int argument = 0;
    EXPECT_FALSE(recording::connect(1));
    EXPECT_FALSE(recording::disconnect(1));
    EXPECT_FALSE(recording::reconnect(1, 2));
    (void)vx_mom_client_connect_sync(global, 1);
    (void)vx_mom_client_connect(global, 1, note_connection, &argument);
    (void)vx_mom_client_set_disconnect_cb(global, 1, note_loss, nullptr);
    (void)vx_mom_client_set_reconnect_cb(global, 1, note_return, nullptr);
    EXPECT_TRUE(recording::connect(1));
    EXPECT_TRUE(recording::disconnect(1));
    EXPECT_TRUE(recording::reconnect(1, 2));
    EXPECT_FALSE(recording::connect(28));
    EXPECT_EQ(recording::journal(),
              (Lines{"vx_mom_client_connect_sync(1)", "vx_mom_client_connect(1) arg=set",
                     "vx_mom_client_set_disconnect_cb(1)", "vx_mom_client_set_reconnect_cb(1)",
                     "up with argument", "lost 1", "back 1 2"}));
}

TEST_F(RecordingPlatformTest, TheContextAndTheLoop)
{
    EXPECT_EQ(vx_global_init("app_cg", nullptr), global);
    recording::script("vx_global_init", {1});
    int reserved = 0;
    EXPECT_EQ(vx_global_init("x", &reserved), nullptr);
    recording::on_run([] { recording::note("running"); });
    EXPECT_EQ(vx_global_run(global), 0);
    vx_global_finish(nullptr);
    EXPECT_EQ(recording::journal(),
              (Lines{"vx_global_init(app_cg)", "vx_global_init(x) reserved=set", "vx_global_run()", "running",
                     "vx_global_finish() context=wrong"}));
}

TEST_F(RecordingPlatformTest, LogRecordsShowExactlyTheLengthsGiven)
{
    vx_zlog_category_t *category = vx_zlog_init("app_cg");
    vxcg_zlog(category, "file.cpp", 4, "function", 3, 42, 80, "%s", "text");
    vxcg_zlog(nullptr, "f", 1, "g", 1, 1, 81, "%d", 5);
    EXPECT_EQ(recording::last_log().line, 1);
    (void)printk_syslog_ext(4, "APP_CG", "CG_MNG", 1, "slot %d", 3);
    EXPECT_EQ(recording::syslog_formats(), (Lines{"slot %d"}));
    recording::script("vx_zlog_init", {1});
    EXPECT_EQ(vx_zlog_init("x"), nullptr);
    EXPECT_EQ(recording::journal(), (Lines{"vx_zlog_init(app_cg)", "log 80 file fun: text",
                                           "log 81 f g: 5 format=%d category=wrong",
                                           "syslog 4 APP_CG CG_MNG 1: slot 3", "vx_zlog_init(x)"}));
}

TEST_F(RecordingPlatformTest, TheFormatterCutsAndReportsTheWholeLength)
{
    std::array<char, 4> buffer{};
    EXPECT_EQ(at_snprintf(buffer.data(), buffer.size(), "%d", 12345), 5);
    EXPECT_STREQ(buffer.data(), "123");
}

TEST_F(RecordingPlatformTest, CommandsRunWithAsManyArgumentsAsTheirTemplateNames)
{
    (void)ssat_lib_init(global, "app_cg");
    (void)ssat_reg_mod_cmd("app_cg", "subtract", 0, "a=%d b=%d",
                           reinterpret_cast<ssat_handler_f>(reinterpret_cast<void (*)()>(subtract)));
    int32_t result = 0;
    EXPECT_TRUE(recording::run_command("subtract", {5, 7}, &result));
    EXPECT_EQ(result, -2);
    EXPECT_FALSE(recording::run_command("subtract", {5}, &result));
    EXPECT_FALSE(recording::run_command("add", {5, 7}, &result));
    EXPECT_EQ(recording::journal(),
              (Lines{"ssat_lib_init(app_cg)", "ssat_reg_mod_cmd(app_cg, subtract, 0, \"a=%d b=%d\")"}));
}

TEST_F(RecordingPlatformTest, TheProcessManagerAndTheInstanceCheck)
{
    recording::script("reg_process_exit_action", {6});
    recording::script("vx_initframe_duplicate_check", {1});
    EXPECT_EQ(reg_process_exit_action(0, 2), 6);
    EXPECT_EQ(vx_initframe_duplicate_check(), 1);
    EXPECT_EQ(recording::journal(),
              (Lines{"reg_process_exit_action(0, 2)", "vx_initframe_duplicate_check()"}));
}

// A temporary file's name, taken away with the variable that names it.
class EnvironmentJournal
{
public:
    EnvironmentJournal()
    {
        fake_fs::set_up();
        fake_fs::write(PATH, "");
        setenv("RECORDING_PLATFORM_JOURNAL", fake_fs::host_path(PATH).c_str(), 1);
    }
    EnvironmentJournal(const EnvironmentJournal &) = delete;
    EnvironmentJournal &operator=(const EnvironmentJournal &) = delete;
    ~EnvironmentJournal()
    {
        unsetenv("RECORDING_PLATFORM_JOURNAL");
        unsetenv("RECORDING_PLATFORM_SCRIPT");
        unsetenv("RECORDING_PLATFORM_EVENTS");
        fake_fs::tear_down();
    }

    static constexpr char PATH[] = "/data/journal";
};

TEST_F(RecordingPlatformTest, TheEnvironmentNamesAJournalFileAndAScript)
{
    const EnvironmentJournal environment;
    setenv("RECORDING_PLATFORM_SCRIPT", "vx_initframe_duplicate_check=1;reg_process_exit_action=-2,3", 1);
    recording::reset();
    EXPECT_EQ(vx_initframe_duplicate_check(), 1);
    EXPECT_EQ(vx_initframe_duplicate_check(), 1);
    EXPECT_EQ(reg_process_exit_action(0, 2), -2);
    EXPECT_EQ(reg_process_exit_action(0, 2), 3);
    EXPECT_EQ(reg_process_exit_action(0, 2), 0);
    recording::note("line\r\nend\\");
    EXPECT_EQ(
        fake_fs::read(EnvironmentJournal::PATH),
        "vx_initframe_duplicate_check()\nvx_initframe_duplicate_check()\nreg_process_exit_action(0, 2)\n"
        "reg_process_exit_action(0, 2)\nreg_process_exit_action(0, 2)\nline\\r\\nend\\\\\n");
}

TEST_F(RecordingPlatformTest, TheEnvironmentNamesWhatHappensWhileTheLoopRuns)
{
    const EnvironmentJournal environment;
    setenv("RECORDING_PLATFORM_EVENTS", "connect 1;reconnect 28 2;connect 33", 1);
    (void)vx_mom_client_connect(global, 1, note_connection, nullptr);
    (void)vx_mom_client_set_reconnect_cb(global, 28, note_return, nullptr);
    (void)recording::take();
    EXPECT_EQ(vx_global_run(global), 0);
    EXPECT_EQ(recording::journal(),
              (Lines{"vx_global_run()", "up", "back 28 2", "nobody waits for \"connect 33\""}));
}
