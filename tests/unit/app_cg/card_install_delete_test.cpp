// Cards that leave: results, request and node go, and no timer outlives its node.
//
// A timer's argument is the node itself, so a timer forgotten here is a use of freed memory later. The tests
// let time pass after each removal: under a memory checker a forgotten one ends the run.
#include <gmock/gmock.h>

#include "admission.h"
#include "app_cg/card_install.h"
#include "app_cg/check_request.h"
#include "app_cg_dbg/logging.h"

namespace admission::card_install_delete
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

std::string said(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_install_node_pmsg_f: " + line;
}

const Journal NOT_ONLINE = {said(40, "pmsg->cmd 3"), said(60, "devid[1] slotid[3], sslotid[2], node_type[3] "
                                                              "tipc_node_id[4097|0x1001] not online ")};

const Journal RESULTS_DELETED =
    join({mom_result_deleted({}, 2), card_result_deleted({}, 2), dev_status_deleted({}, 2, 0)});

const std::string NODE_DEL_ENTER = "log 60 app_cg.cpp app_cg_node_del: devid[1] slotid[3] sslotid[2]";
const std::string NODE_DEL_LEAVE = "log 60 app_cg.cpp app_cg_node_del: leave";

int32_t notify_deleted(const ProtobufCMessage *record)
{
    vx_mom_pmsg_t pmsg{};
    pmsg.cmd = VX_MOM_CMD_DELETED;
    pmsg.record = const_cast<ProtobufCMessage *>(record);
    return app_cg_install_node_pmsg_f(nullptr, &pmsg);
}

// What is left to happen once the card is gone: nothing.
void expect_silence()
{
    EXPECT_THAT(recording::armed_timers(), IsEmpty());
    recording::take();
    recording::advance(24h);
    EXPECT_THAT(recording::take(), IsEmpty());
}

class CardInstallDelete : public AdmissionTest
{
};

class CardInstallDeleteLog : public EveryVerbosity
{
};

INSTANTIATE_TEST_SUITE_P(Verbosity, CardInstallDeleteLog, every_verbosity(), verbosity_name);

TEST_P(CardInstallDeleteLog, ACardUnderCheckLeaves)
{
    card_written({});
    recording::take();
    const CardNode node = *node_of({});
    EXPECT_EQ(card_deleted({}), 0);
    EXPECT_EQ(recording::take(), heard({NOT_ONLINE,
                                        RESULTS_DELETED,
                                        found({}),
                                        check_ended(node, "t1"),
                                        {NODE_DEL_ENTER},
                                        found({}),
                                        {NODE_DEL_LEAVE}}));
    EXPECT_EQ(node_count(), 0U);
    expect_silence();
}

TEST_P(CardInstallDeleteLog, ADecidedCardLeaves)
{
    card_written({});
    denied_by({}, "m1", "no");
    recording::take();
    const CardNode node = *node_of({});
    EXPECT_EQ(card_deleted({}), 0);
    EXPECT_EQ(recording::take(), heard({NOT_ONLINE,
                                        RESULTS_DELETED,
                                        found({}),
                                        check_ended(node, ""),
                                        {NODE_DEL_ENTER},
                                        found({}),
                                        {NODE_DEL_LEAVE}}));
    EXPECT_EQ(node_count(), 0U);
}

TEST_P(CardInstallDeleteLog, ACardThatWasNeverHeardOfLeaves)
{
    EXPECT_EQ(card_deleted({}), 0);
    EXPECT_EQ(recording::take(), heard({NOT_ONLINE, RESULTS_DELETED, {NODE_DEL_ENTER, NODE_DEL_LEAVE}}));
}

TEST_P(CardInstallDeleteLog, OffTheMasterOnlyTheResultByTipcNodeIsDeleted)
{
    become(3);
    EXPECT_EQ(card_deleted({}), 0);
    EXPECT_EQ(recording::take(),
              heard({NOT_ONLINE,
                     mom_result_deleted({}, 2),
                     refused(card_result_deleted({}, 2), "app_cg_update_card_check_result", 3),
                     refused(dev_status_deleted({}, 2, 0), "app_cg_update_dev_check_result", 3),
                     {NODE_DEL_ENTER, NODE_DEL_LEAVE}}));
}

TEST_P(CardInstallDeleteLog, ARecordIsNeeded)
{
    EXPECT_EQ(notify_deleted(nullptr), -4);
    EXPECT_EQ(recording::take(),
              heard({{said(40, "pmsg->cmd 3"), said(100, "card_info NULL pointer, addr error!\n")}}));
}

TEST_P(CardInstallDeleteLog, AnIndexIsNeeded)
{
    records::CardRecord record = record_of({});
    EXPECT_EQ(notify_deleted(record.without_index()), -4);
    EXPECT_EQ(recording::take(),
              heard({{said(40, "pmsg->cmd 3"), said(100, "card_info->index NULL pointer, addr error!\n")}}));
}

TEST_P(CardInstallDeleteLog, AStaticPartIsNeeded)
{
    card_written({});
    recording::take();
    records::CardRecord record = record_of({});
    EXPECT_EQ(notify_deleted(record.without_static_part()), -4);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 3"),
                                         said(100, "card_info->static_info NULL pointer, addr error!\n")}}));
    EXPECT_EQ(node_count(), 1U);
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t1"));
}

TEST_F(CardInstallDelete, FailedStoreCallsDoNotKeepTheCard)
{
    card_written({});
    const CardNode node = *node_of({});
    app_cg_verbosity = 0;
    recording::take();
    recording::script_always("vx_mom_del", -7);
    EXPECT_EQ(card_deleted({}), 0);
    EXPECT_EQ(recording::take(), heard_at(0, join({RESULTS_DELETED, check_ended(node, "t1")})));
    EXPECT_EQ(node_count(), 0U);
    expect_silence();
}

TEST_F(CardInstallDelete, AMainBoardsResultsAreDeletedAsWell)
{
    const Card board = Card{}.board();
    card_written(board);
    recording::take();
    card_deleted(board);
    EXPECT_EQ(recording::take(),
              heard_at(1, join({mom_result_deleted(board, 2), card_result_deleted(board, 2),
                                dev_status_deleted(board, 2, 0), check_ended(fresh_node(board), "")})));
}

TEST_F(CardInstallDelete, AcknowledgementsOfACardThatLeftStayUntilTheyComeAgain)
{
    card_written({});
    recording::take();
    card_deleted({});
    EXPECT_THAT(recording::take(), testing::Not(testing::Contains(testing::StartsWith("vx_mom_pdel"))));
}

TEST_F(CardInstallDelete, ANeighbourIsNotTouched)
{
    Card neighbour;
    neighbour.sslotid = 1;
    card_written({});
    card_written(neighbour);
    card_deleted({});
    EXPECT_THAT(table(), ElementsAre("1/3/1"));
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t2"));
    recording::advance(300s);
    EXPECT_EQ(node_of(neighbour)->stat, 1);
}

TEST_F(CardInstallDelete, ACardThatIsPluggedAgainIsANewOne)
{
    card_written({});
    passed_by({}, "m1");
    card_deleted({});
    card_written({});
    EXPECT_EQ(node_of({})->wait_obj.app_cg_wait_obj_bmp, 7U);
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t2"));
}

// ---- timers whose handle was overwritten ----

// Two timers run for the card: its modules went away while it was under check, it went off line and on line
// unnoticed by the check, and its modules came back.
void check_twice()
{
    card_written({});
    register_modules({});
    card_written(Card{}.offline());
    recording::advance(100s);
    register_modules({"m2", "m4"});
    card_written({});
    recording::take();
}

TEST_F(CardInstallDelete, AChangeOfModulesCanLeaveTwoTimersRunning)
{
    check_twice();
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t1", "t2"));
    EXPECT_EQ(recording::timer_argument("t1"), node_of({}));
    EXPECT_EQ(recording::timer_argument("t2"), node_of({}));
}

TEST_F(CardInstallDelete, BothTimersGoWithTheCard)
{
    check_twice();
    const CardNode node = *node_of({});
    card_deleted({});
    EXPECT_EQ(recording::take(),
              heard_at(1, join({RESULTS_DELETED, check_ended(node, "t2"), {"vx_thread_cancel(t1)"}})));
    expect_silence();
}

TEST_F(CardInstallDelete, TheLaterTimerGoesWithTheCardAfterTheEarlierFired)
{
    check_twice();
    recording::advance(200s);
    EXPECT_EQ(recording::take().front(), "timer t1 fires");
    ASSERT_EQ(node_of({})->timer, nullptr);
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t2"));
    const CardNode node = *node_of({});
    card_deleted({});
    EXPECT_EQ(recording::take(),
              heard_at(1, join({RESULTS_DELETED, check_ended(node, ""), {"vx_thread_cancel(t2)"}})));
    expect_silence();
}

TEST_F(CardInstallDelete, TheEarlierTimerGoesWithTheCardAfterTheCheckEnded)
{
    check_twice();
    denied_by({}, "m4", "no");
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t1"));
    card_deleted({});
    expect_silence();
}

TEST_F(CardInstallDelete, AfterBothFiredNothingIsCancelled)
{
    check_twice();
    recording::advance(300s);
    EXPECT_THAT(recording::armed_timers(), IsEmpty());
    const CardNode node = *node_of({});
    recording::take();
    card_deleted({});
    EXPECT_EQ(recording::take(), heard_at(1, join({RESULTS_DELETED, check_ended(node, "")})));
}

TEST_F(CardInstallDelete, ThreeTimersGoWithTheCardThroughChangesOfModules)
{
    check_twice();
    register_modules({});
    card_written(Card{}.offline());
    register_modules({"m9"});
    card_written({});
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t1", "t2", "t3"));
    register_modules({});
    card_deleted({});
    expect_silence();
    // The memory may be used again at once; no old timer may take the new card for the old one.
    register_modules({"m1"});
    card_written({});
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t4"));
    recording::take();
    recording::advance(300s - 1us);
    EXPECT_THAT(recording::take(), IsEmpty());
    EXPECT_EQ(node_of({})->stat, 0);
}

TEST_F(CardInstallDelete, ANeighboursOverwrittenTimerIsNotTouched)
{
    Card neighbour;
    neighbour.slotid = 4;
    check_twice();
    card_written(neighbour);
    app_cg_noti_start_deny_info(node_of(neighbour), 1);
    card_deleted({});
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t3", "t4"));
    recording::advance(300s);
    EXPECT_EQ(node_of(neighbour)->stat, 1);
}

TEST_F(CardInstallDelete, ACardWhoseLastTimerWasRefusedLosesTheEarlierOne)
{
    card_written({});
    recording::script("vx_thread_add_timer_timeval", {-1});
    app_cg_noti_start_deny_info(node_of({}), 1);
    ASSERT_EQ(node_of({})->timer, nullptr);
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t1"));
    card_deleted({});
    expect_silence();
}

} // namespace admission::card_install_delete
