// Starting and ending a card's check: the request in the store and the timer that goes with it.
//
// Called as operations on a node of the test's own making, so that each field that goes into the request is
// one that the test chose; how cards come to be checked is told in card_install_write_test.cpp.
#include "app_cg/check_request.h"

#include <gmock/gmock.h>

#include "admission.h"
#include "app_cg/card_nodes.h"
#include "app_cg_dbg/logging.h"

namespace admission::check_request
{

using testing::ElementsAre;
using testing::IsEmpty;

const char *const REQUEST = "p_libpub.app_cg_card_check_info{index={devid=1 slotid=3 sslotid=2} type=17 "
                            "node_type=DM_TYPE_LC card_nodeid=33}";
const char *const REQUEST_KEY = "p_libpub.app_cg_card_check_info{index={devid=1 slotid=3 sslotid=2}}";

const char *const REFUSAL = "log 120 app_cg.cpp app_cg_check_add_slot_timer: vx_thread_add_timer failed, "
                            "devid[1] slotid[3] sslotid[2]";

std::string said(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_noti_start_deny_info: " + line;
}

// Puts a card into the table and forgets how it got there.
CardNode *plugged(const Card &card = {})
{
    CardNode *node = app_cg_node_init(fresh_node(card), &g_app_cg_global.card_nodes);
    recording::take();
    return node;
}

class CheckRequest : public AdmissionTest
{
};

class CheckRequestLog : public EveryVerbosity
{
};

INSTANTIATE_TEST_SUITE_P(Verbosity, CheckRequestLog, every_verbosity(), verbosity_name);

// ---- start ----

TEST_P(CheckRequestLog, StartWritesTheRequestAndArmsTheTimer)
{
    CardNode *node = plugged();
    const Journal dump = dumped(*node);
    EXPECT_EQ(app_cg_noti_start_deny_info(node, 1), 0);
    EXPECT_EQ(recording::take(), heard({dump,
                                        {said(40, "enter devid[1] slotid[3] sslotid[2]start 1"),
                                         std::string("vx_mom_hmset(1, ") + REQUEST + ", [6 7 8])",
                                         "vx_thread_add_timer(300.000000) = t1", said(40, "leave")}}));
    EXPECT_NE(node->timer, nullptr);
    EXPECT_EQ(recording::timer_argument("t1"), node);
}

TEST_P(CheckRequestLog, EveryStartButZeroStarts)
{
    CardNode *node = plugged();
    const Journal dump = dumped(*node);
    EXPECT_EQ(app_cg_noti_start_deny_info(node, 256), 0);
    EXPECT_EQ(recording::take(), heard({dump,
                                        {said(40, "enter devid[1] slotid[3] sslotid[2]start 256"),
                                         std::string("vx_mom_hmset(1, ") + REQUEST + ", [6 7 8])",
                                         "vx_thread_add_timer(300.000000) = t1", said(40, "leave")}}));
}

TEST_F(CheckRequest, AStartDecidesNothing)
{
    CardNode *node = plugged();
    CardNode before = *node;
    app_cg_noti_start_deny_info(node, 1);
    before.timer = node->timer;
    EXPECT_EQ(dump_text(*node), dump_text(before));
}

TEST_F(CheckRequest, TheRequestIsMadeFromTheNodeAlone)
{
    Card bare;
    bare.devid = 0;
    bare.slotid = 0;
    bare.sslotid = 0;
    bare.config_dev_type = 0;
    bare.node_type = 0;
    bare.card_nodeid = 0;
    app_cg_noti_start_deny_info(plugged(bare), 1);
    EXPECT_THAT(recording::take(),
                ElementsAre("vx_mom_hmset(1, p_libpub.app_cg_card_check_info{index={}}, [6 7 8])",
                            "vx_thread_add_timer(300.000000) = t1"));
}

TEST_F(CheckRequest, ANodeTypeWithoutANameIsSentAsItCame)
{
    Card odd;
    odd.node_type = 77;
    app_cg_noti_start_deny_info(plugged(odd), 1);
    EXPECT_EQ(recording::take().front(),
              "vx_mom_hmset(1, p_libpub.app_cg_card_check_info{index={devid=1 slotid=3 sslotid=2} type=17 "
              "node_type=77 card_nodeid=33}, [6 7 8])");
}

TEST_P(CheckRequestLog, AFailedWriteIsReportedAndTheTimerArmedAllTheSame)
{
    CardNode *node = plugged();
    const Journal dump = dumped(*node);
    recording::script("vx_mom_hmset", {-7});
    EXPECT_EQ(app_cg_noti_start_deny_info(node, 1), -7);
    EXPECT_EQ(recording::take(), heard({dump,
                                        {said(40, "enter devid[1] slotid[3] sslotid[2]start 1"),
                                         std::string("vx_mom_hmset(1, ") + REQUEST + ", [6 7 8])",
                                         said(100, "hmset failed, devid 1, slotid 3 sslotid 2"),
                                         "vx_thread_add_timer(300.000000) = t1", said(40, "leave")}}));
    EXPECT_NE(node->timer, nullptr);
}

TEST_P(CheckRequestLog, AbsentIsNoFailureOfAWriteButIsReturned)
{
    CardNode *node = plugged();
    const Journal expected = heard({check_started(*node, "t1")});
    recording::script("vx_mom_hmset", {-5});
    EXPECT_EQ(app_cg_noti_start_deny_info(node, 1), -5);
    EXPECT_EQ(recording::take(), expected);
}

TEST_P(CheckRequestLog, ARefusedTimerIsFatalInTheLogAndNowhereElse)
{
    CardNode *node = plugged();
    const Journal dump = dumped(*node);
    recording::script("vx_thread_add_timer_timeval", {-1});
    EXPECT_EQ(app_cg_noti_start_deny_info(node, 1), 0);
    EXPECT_EQ(recording::take(),
              heard({dump,
                     {said(40, "enter devid[1] slotid[3] sslotid[2]start 1"),
                      std::string("vx_mom_hmset(1, ") + REQUEST + ", [6 7 8])",
                      "vx_thread_add_timer(300.000000) = null", REFUSAL, said(40, "leave")}}));
    EXPECT_EQ(node->timer, nullptr);
}

TEST_F(CheckRequest, StartingTwiceLeavesTwoTimersRunning)
{
    CardNode *node = plugged();
    app_cg_noti_start_deny_info(node, 1);
    vx_thread_t *first = node->timer;
    app_cg_noti_start_deny_info(node, 1);
    EXPECT_NE(node->timer, first);
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t1", "t2"));
    EXPECT_EQ(recording::timer_argument("t1"), node);
    EXPECT_EQ(recording::timer_argument("t2"), node);
}

TEST_F(CheckRequest, ARefusedSecondTimerLeavesTheFirstRunning)
{
    CardNode *node = plugged();
    app_cg_noti_start_deny_info(node, 1);
    recording::script("vx_thread_add_timer_timeval", {-1});
    app_cg_noti_start_deny_info(node, 1);
    EXPECT_EQ(node->timer, nullptr);
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t1"));
}

// ---- end ----

TEST_P(CheckRequestLog, EndDeletesTheRequestAndCancelsTheTimer)
{
    CardNode *node = plugged();
    app_cg_noti_start_deny_info(node, 1);
    recording::take();
    const Journal dump = dumped(*node);
    EXPECT_EQ(app_cg_noti_start_deny_info(node, 0), 0);
    EXPECT_EQ(recording::take(), heard({dump,
                                        {said(40, "enter devid[1] slotid[3] sslotid[2]start 0"),
                                         std::string("vx_mom_del(1, ") + REQUEST_KEY + ")",
                                         "vx_thread_cancel(t1)", said(40, "leave")}}));
    EXPECT_EQ(node->timer, nullptr);
    EXPECT_THAT(recording::armed_timers(), IsEmpty());
}

TEST_P(CheckRequestLog, EndWithoutATimerCancelsNothing)
{
    CardNode *node = plugged();
    EXPECT_EQ(app_cg_noti_start_deny_info(node, 0), 0);
    EXPECT_EQ(recording::take(),
              heard({dumped(*node),
                     {said(40, "enter devid[1] slotid[3] sslotid[2]start 0"),
                      std::string("vx_mom_del(1, ") + REQUEST_KEY + ")", said(40, "leave")}}));
}

TEST_P(CheckRequestLog, AFailedDeletionIsReportedAndTheTimerCancelledAllTheSame)
{
    CardNode *node = plugged();
    app_cg_noti_start_deny_info(node, 1);
    recording::take();
    const Journal dump = dumped(*node);
    recording::script("vx_mom_del", {-7});
    EXPECT_EQ(app_cg_noti_start_deny_info(node, 0), -7);
    EXPECT_EQ(recording::take(), heard({dump,
                                        {said(40, "enter devid[1] slotid[3] sslotid[2]start 0"),
                                         std::string("vx_mom_del(1, ") + REQUEST_KEY + ")",
                                         said(100, "del failed, devid 1, slotid 3 sslotid 2"),
                                         "vx_thread_cancel(t1)", said(40, "leave")}}));
    EXPECT_EQ(node->timer, nullptr);
}

TEST_P(CheckRequestLog, AbsentIsNoFailureOfADeletionButIsReturned)
{
    CardNode *node = plugged();
    app_cg_noti_start_deny_info(node, 1);
    recording::take();
    const Journal expected = heard({check_ended(*node, "t1")});
    recording::script("vx_mom_del", {-5});
    EXPECT_EQ(app_cg_noti_start_deny_info(node, 0), -5);
    EXPECT_EQ(recording::take(), expected);
}

TEST_P(CheckRequestLog, EndAfterTwoStartsCancelsOnlyTheLaterTimer)
{
    CardNode *node = plugged();
    app_cg_noti_start_deny_info(node, 1);
    app_cg_noti_start_deny_info(node, 1);
    recording::take();
    const Journal expected = heard({check_ended(*node, "t2")});
    app_cg_noti_start_deny_info(node, 0);
    EXPECT_EQ(recording::take(), expected);
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t1"));
}

TEST_P(CheckRequestLog, ThereIsNoCheckWithoutANode)
{
    EXPECT_EQ(app_cg_noti_start_deny_info(nullptr, 1), -4);
    EXPECT_EQ(app_cg_noti_start_deny_info(nullptr, 0), -4);
    const std::string refusal = said(100, "node NULL pointer, addr error!\n");
    EXPECT_EQ(recording::take(), heard({{refusal, refusal}}));
}

// ---- the timer by itself ----

TEST_F(CheckRequest, TheTimerIsArmedForTheNode)
{
    CardNode *node = plugged();
    EXPECT_EQ(app_cg_check_add_slot_timer(node), 0);
    EXPECT_THAT(recording::take(), ElementsAre("vx_thread_add_timer(300.000000) = t1"));
    EXPECT_EQ(recording::timer_argument("t1"), node);
    EXPECT_NE(node->timer, nullptr);
}

TEST_P(CheckRequestLog, TheRefusalOfATimerIsWrittenAtAnyVerbosity)
{
    CardNode *node = plugged();
    recording::script("vx_thread_add_timer_timeval", {-1});
    EXPECT_EQ(app_cg_check_add_slot_timer(node), -11);
    EXPECT_THAT(recording::take(), ElementsAre("vx_thread_add_timer(300.000000) = null", REFUSAL));
    EXPECT_EQ(node->timer, nullptr);
}

// Arms timers until there is no room to note another one, and lets the next attempt to make room fail.
// Returns how many are armed. The room that earlier tests made stays, so its end is found by trying; from a
// thousand timers on, because nothing else that is allocated on the way is that large.
std::size_t run_out_of_memory_for_timers(CardNode *node)
{
    constexpr std::size_t NOTE_SIZE = 2 * sizeof(void *); // a timer and its node; room for them doubles
    constexpr std::size_t MANY = 1000;
    constexpr std::size_t TOO_MANY = 5000;
    std::size_t armed = 0;
    while (armed < TOO_MANY) {
        recording::take();
        if (armed >= MANY) {
            fake_fs::fail_next_new((2 * armed + 1) * NOTE_SIZE);
        }
        if (app_cg_check_add_slot_timer(node) != 0) {
            break;
        }
        ++armed;
    }
    recording::take();
    fake_fs::fail_next_new((2 * armed + 1) * NOTE_SIZE);
    return armed;
}

TEST_P(CheckRequestLog, WithoutMemoryNoTimerIsAskedFor)
{
    CardNode *node = plugged();
    const std::size_t armed = run_out_of_memory_for_timers(node);
    EXPECT_EQ(app_cg_check_add_slot_timer(node), -11);
    EXPECT_FALSE(fake_fs::new_failure_pending());
    EXPECT_THAT(recording::take(), ElementsAre(REFUSAL));
    EXPECT_EQ(node->timer, nullptr);
    EXPECT_EQ(recording::armed_timers().size(), armed);
}

TEST_P(CheckRequestLog, WithoutMemoryACheckStartsWithoutADeadline)
{
    for (const int32_t rv : {0, -7}) {
        SCOPED_TRACE(rv);
        CardNode *node = plugged();
        const std::size_t armed = run_out_of_memory_for_timers(node);
        const Journal dump = dumped(*node);
        recording::script("vx_mom_hmset", {rv});
        EXPECT_EQ(app_cg_noti_start_deny_info(node, 1), rv) << "the answer to the request's write";
        EXPECT_FALSE(fake_fs::new_failure_pending());
        Journal said_by_start{said(40, "enter devid[1] slotid[3] sslotid[2]start 1"),
                              std::string("vx_mom_hmset(1, ") + REQUEST + ", [6 7 8])"};
        if (rv != 0) {
            said_by_start.push_back(said(100, "hmset failed, devid 1, slotid 3 sslotid 2"));
        }
        EXPECT_EQ(recording::take(), heard({dump, said_by_start, {REFUSAL, said(40, "leave")}}));
        EXPECT_EQ(node->timer, nullptr);
        EXPECT_EQ(recording::armed_timers().size(), armed);
        app_cg_check_cancel_slot_timers(node);
        app_cg_node_del(node->devid, node->slotid, node->sslotid);
    }
}

TEST_F(CheckRequest, CancellingAllTimersLeavesNone)
{
    CardNode *node = plugged();
    Card neighbour;
    neighbour.slotid = 4;
    CardNode *other = plugged(neighbour);
    app_cg_noti_start_deny_info(node, 1);
    app_cg_noti_start_deny_info(other, 1);
    app_cg_noti_start_deny_info(node, 1);
    recording::take();
    app_cg_check_cancel_slot_timers(node);
    EXPECT_THAT(recording::take(),
                testing::UnorderedElementsAre("vx_thread_cancel(t1)", "vx_thread_cancel(t3)"));
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t2"));
    app_cg_check_cancel_slot_timers(node);
    EXPECT_THAT(recording::take(), IsEmpty());
}

} // namespace admission::check_request
