// The end of a card's 300 seconds: silence counts as consent.
//
// Time passes on the recording platform's clock, so that "exactly 300 s" is a statement about microseconds
// and the suite does not wait.
#include <gmock/gmock.h>

#include <cstring>

#include "admission.h"
#include "app_cg/card_nodes.h"
#include "app_cg/check_request.h"
#include "app_cg_dbg/logging.h"

namespace admission::check_timeout
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

std::string said(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_pro_timeout_card: " + line;
}

// The node as the time-out leaves it.
CardNode timed_out(CardNode node)
{
    node.stat = 1;
    node.reported = 1;
    node.timer = nullptr;
    node.wait_obj.app_cg_wait_obj_bmp = 0;
    return node;
}

// Puts a card under check and forgets how it got there.
CardNode *card_under_check(const Card &card = {})
{
    CardNode *node = app_cg_node_init(fresh_node(card), &g_app_cg_global.card_nodes);
    app_cg_noti_start_deny_info(node, 1);
    recording::take();
    return node;
}

bool names_are_zero(const CardNode &node)
{
    for (const auto &name : node.wait_obj.app_cg_wait_obj_name) {
        for (const char character : name) {
            if (character != '\0') {
                return false;
            }
        }
    }
    return true;
}

class CheckTimeout : public AdmissionTest
{
};

class CheckTimeoutLog : public EveryVerbosity
{
};

INSTANTIATE_TEST_SUITE_P(Verbosity, CheckTimeoutLog, every_verbosity(), verbosity_name);

TEST_P(CheckTimeoutLog, TheCardIsPassed)
{
    CardNode *node = card_under_check();
    const CardNode after = timed_out(*node);
    auto &names = node->wait_obj.app_cg_wait_obj_name;
    std::memset(names, 'x', sizeof names);
    recording::advance(300s);
    EXPECT_EQ(recording::take(), heard({{"timer t1 fires", said(80, "enter"),
                                         said(120, "devid[1] slotid[3] sslotid[2] wait_obj_bmp[7]")},
                                        all_passed({}),
                                        check_ended(after, ""),
                                        {said(80, "leave")}}));
    EXPECT_EQ(dump_text(*node), dump_text(after));
    EXPECT_EQ(node->wait_obj.app_cg_wait_obj_num, 3);
    EXPECT_TRUE(names_are_zero(*node));
}

TEST_F(CheckTimeout, NotAMicrosecondEarlier)
{
    CardNode *node = card_under_check();
    recording::advance(300s - 1us);
    EXPECT_THAT(recording::take(), IsEmpty());
    EXPECT_EQ(node->stat, 0);
    recording::advance(1us);
    EXPECT_EQ(recording::take().front(), "timer t1 fires");
    EXPECT_EQ(node->stat, 1);
}

TEST_F(CheckTimeout, TheModulesThatNeverAnsweredAreShownInHexadecimal)
{
    CardNode *node = card_under_check();
    node->wait_obj.app_cg_wait_obj_bmp = 0xfffe;
    app_cg_verbosity = 0;
    recording::advance(300s);
    EXPECT_THAT(recording::take(),
                testing::Contains(said(120, "devid[1] slotid[3] sslotid[2] wait_obj_bmp[fffe]")));
}

TEST_F(CheckTimeout, WithNobodyOutstandingTheCardIsPassedAllTheSame)
{
    CardNode *node = card_under_check();
    node->wait_obj.app_cg_wait_obj_bmp = 0;
    recording::advance(300s);
    EXPECT_EQ(
        recording::take(),
        heard_at(1, join({{"timer t1 fires", said(120, "devid[1] slotid[3] sslotid[2] wait_obj_bmp[0]")},
                          all_passed({}),
                          check_ended(*node, "")})));
    EXPECT_EQ(node->stat, 1);
    EXPECT_EQ(node->reported, 1);
}

TEST_P(CheckTimeoutLog, OffTheMasterOnlyTheResultByTipcNodeIsWritten)
{
    become(2);
    CardNode *node = card_under_check();
    const CardNode after = timed_out(*node);
    recording::advance(300s);
    EXPECT_EQ(recording::take(),
              heard({{"timer t1 fires", said(80, "enter"),
                      said(120, "devid[1] slotid[3] sslotid[2] wait_obj_bmp[7]")},
                     mom_result_set({}, 1),
                     refused(card_result_set({}, 1), "app_cg_update_card_check_result", 2),
                     refused(dev_status_deleted({}, 1, 1), "app_cg_update_dev_check_result", 2),
                     check_ended(after, ""),
                     {said(80, "leave")}}));
    EXPECT_EQ(node->reported, 1);
}

TEST_F(CheckTimeout, TheCardIsMarkedOnlyAfterItsResults)
{
    CardNode *node = card_under_check();
    Journal seen;
    look_inside("vx_mom_set", {}, &seen);
    look_inside("vx_mom_hmset", {}, &seen);
    look_inside("vx_mom_del", {}, &seen); // the custom status
    look_inside("vx_mom_del", {}, &seen); // the request
    recording::advance(300s);
    EXPECT_THAT(seen, ElementsAre("vx_mom_set: stat 0 reported 0", "vx_mom_hmset: stat 0 reported 0",
                                  "vx_mom_del: stat 0 reported 0", "vx_mom_del: stat 1 reported 1"));
    EXPECT_EQ(node->stat, 1);
}

TEST_F(CheckTimeout, FailedWritesDoNotStopIt)
{
    CardNode *node = card_under_check();
    recording::script("vx_mom_set", {-7});
    recording::script("vx_mom_hmset", {-8});
    recording::script("vx_mom_del", {-9, -10});
    recording::advance(300s);
    const Journal passed = heard_at(0, all_passed({}));
    ASSERT_EQ(passed.size(), 3U);
    EXPECT_THAT(
        recording::take(),
        ElementsAre("timer t1 fires", said(120, "devid[1] slotid[3] sslotid[2] wait_obj_bmp[7]"), passed[0],
                    error("app_cg_update_mom_check_result",
                          "update dev[1] slot[3] sslot[2], card_tipc_nodeid[4097|0x1001] stat[1] op[SET], "
                          "node_type[3], rv -7"),
                    passed[1],
                    error("app_cg_update_card_check_result",
                          "update dev[1] slot[3] sslot[2], stat[1] op[SET], card_nodeid[33|0x21] "
                          "config_dev_type[17] rv -8"),
                    passed[2], error("app_cg_update_dev_check_result", "del dev[1] slot[3] sslot[2] failed"),
                    "vx_mom_del(1, " + request_key({}) + ")",
                    error("app_cg_noti_start_deny_info", "del failed, devid 1, slotid 3 sslotid 2")));
    EXPECT_EQ(node->stat, 1);
    EXPECT_EQ(node->reported, 1);
    EXPECT_EQ(node->timer, nullptr);
}

TEST_F(CheckTimeout, TheResultIsZeroEvenWhenWritesFail)
{
    CardNode *node = card_under_check();
    recording::script_always("vx_mom_set", -7);
    recording::script_always("vx_mom_del", -7);
    app_cg_check_cancel_slot_timers(node);
    vx_thread_t event{node};
    EXPECT_EQ(app_cg_pro_timeout_card(&event), 0);
}

TEST_P(CheckTimeoutLog, AnEventIsNeeded)
{
    EXPECT_EQ(app_cg_pro_timeout_card(nullptr), -4);
    EXPECT_EQ(recording::take(), heard({{said(80, "enter"), said(100, "t NULL pointer, addr error!\n")}}));
}

TEST_P(CheckTimeoutLog, AnEventNeedsANode)
{
    vx_thread_t event{nullptr};
    EXPECT_EQ(app_cg_pro_timeout_card(&event), -4);
    EXPECT_EQ(recording::take(), heard({{said(80, "enter"), said(100, "node NULL pointer, addr error!\n")}}));
}

TEST_F(CheckTimeout, ItFiresOncePerArming)
{
    card_under_check();
    recording::advance(300s);
    recording::take();
    recording::advance(24h);
    EXPECT_THAT(recording::take(), IsEmpty());
    EXPECT_THAT(recording::armed_timers(), IsEmpty());
}

TEST_F(CheckTimeout, AnEndedCheckDoesNotTimeOut)
{
    CardNode *node = card_under_check();
    app_cg_noti_start_deny_info(node, 0);
    recording::take();
    recording::advance(24h);
    EXPECT_THAT(recording::take(), IsEmpty());
    EXPECT_EQ(node->stat, 0);
}

// ---- two starts, two timers ----

TEST_F(CheckTimeout, TheEarlierOfTwoTimersStillFires)
{
    CardNode *node = card_under_check();
    recording::advance(100s);
    app_cg_noti_start_deny_info(node, 1);
    recording::take();
    recording::advance(200s);
    EXPECT_EQ(recording::take().front(), "timer t1 fires");
    EXPECT_EQ(node->stat, 1);
    EXPECT_EQ(node->timer, nullptr);
    // The later one lost its handle to the earlier one's firing and comes all the same.
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t2"));
    recording::advance(100s - 1us);
    EXPECT_THAT(recording::take(), IsEmpty());
    recording::advance(1us);
    EXPECT_EQ(
        recording::take(),
        heard_at(1, join({{"timer t2 fires", said(120, "devid[1] slotid[3] sslotid[2] wait_obj_bmp[0]")},
                          all_passed({}),
                          check_ended(*node, "")})));
}

TEST_F(CheckTimeout, AnOverwrittenTimerPassesACardWhoseCheckHasEnded)
{
    CardNode *node = card_under_check();
    app_cg_noti_start_deny_info(node, 1);
    app_cg_noti_start_deny_info(node, 0);
    recording::take();
    recording::advance(300s);
    EXPECT_EQ(recording::take().front(), "timer t1 fires");
    EXPECT_EQ(node->stat, 1);
    EXPECT_EQ(node->reported, 1);
}

TEST_F(CheckTimeout, TimersOfCardsFireInTheOrderOfTheirArming)
{
    Card neighbour;
    neighbour.slotid = 4;
    card_under_check();
    card_under_check(neighbour);
    recording::advance(300s);
    const Journal lines = recording::take();
    EXPECT_EQ(lines.front(), "timer t1 fires");
    EXPECT_THAT(lines, testing::IsSupersetOf({said(120, "devid[1] slotid[3] sslotid[2] wait_obj_bmp[7]"),
                                              std::string("timer t2 fires"),
                                              said(120, "devid[1] slotid[4] sslotid[2] wait_obj_bmp[7]")}));
}

} // namespace admission::check_timeout
