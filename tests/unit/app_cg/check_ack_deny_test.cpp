// Denials: one DENY is enough, the card is powered off, and two lines reach the system log.
#include <gmock/gmock.h>

#include <cstdio>

#include "admission.h"
#include "app_cg/check_ack.h"
#include "app_cg_dbg/logging.h"

namespace admission::check_ack_deny
{

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

const char *const POWER_OFF = "vx_mom_set_sync(33, s_dev.im_card_power_onoff{index={devid=1 slotid=3 "
                              "sslotid=2 mod_name=\"cap\" cause=\"not compatible\"}})";
const char *const SHUTDOWN_LINE =
    "syslog 4 APP_CG MIX_MNG 1: Card in slot 1/3 will be controlled to shutdown for not compatible.";

// Two formats, one line each: whoever collects system-log lines tells them apart by these.
const char *const DISABLED_FORMAT = "Card in slot %d/%d will be disabled due to reason: %s.";
const char *const SHUTDOWN_FORMAT = "Card in slot %d/%d will be controlled to shutdown for %s.";

std::string said(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_check_ack_pmsg_f: " + line;
}

std::string disabled_line(const std::string &reason)
{
    return "syslog 4 APP_CG CG_MNG 1: Card in slot 1/3 will be disabled due to reason: " + reason + ".";
}

std::string denied_line(const std::string &module, const std::string &reason)
{
    return said(100, "dev[1] slot[3] sslot[2] is denied by[" + module + "] reason[" + reason + "].\r\n");
}

CardNode *waiting_card(const Card &card = {})
{
    card_written(card);
    recording::take();
    return node_of(card);
}

Journal consumed(const char *module)
{
    return join({{said(40, "pmsg->cmd 4")}, ack_deleted({}, module), found({})});
}

const Journal POWERED_OFF = {said(80, "dev[1] slot[3] sslot[2], power.updown[0], power off"), POWER_OFF,
                             SHUTDOWN_LINE, said(80, "set power off success!!!")};

// The node as a denial leaves it, before its timer is cancelled.
CardNode denied(CardNode node, const std::string &reason)
{
    node.stat = 2;
    node.reported = 1;
    std::snprintf(node.reason, sizeof node.reason, "%s", reason.c_str());
    return node;
}

// The system-log lines of a journal.
Journal system_log(const Journal &lines)
{
    Journal found;
    for (const std::string &line : lines) {
        if (line.rfind("syslog ", 0) == 0) {
            found.push_back(line);
        }
    }
    return found;
}

class CheckAckDeny : public AdmissionTest
{
};

class CheckAckDenyLog : public EveryVerbosity
{
};

INSTANTIATE_TEST_SUITE_P(Verbosity, CheckAckDenyLog, every_verbosity(), verbosity_name);

TEST_P(CheckAckDenyLog, OneDenyDeniesTheCardAtOnce)
{
    CardNode *node = waiting_card();
    const CardNode decided = denied(*node, "too old");
    EXPECT_EQ(denied_by({}, "m2", "too old"), 0);
    EXPECT_EQ(recording::take(), heard({consumed("m2"),
                                        {denied_line("m2", "too old"), disabled_line("too old")},
                                        all_denied({}),
                                        POWERED_OFF,
                                        check_ended(decided, "t1")}));
    EXPECT_EQ(node->stat, 2);
    EXPECT_EQ(node->reported, 1);
    EXPECT_STREQ(node->reason, "too old");
    EXPECT_THAT(recording::syslog_formats(), ElementsAre(DISABLED_FORMAT, SHUTDOWN_FORMAT));
    EXPECT_EQ(node->wait_obj.app_cg_wait_obj_bmp, 7U) << "a DENY clears no bit";
    EXPECT_EQ(node->timer, nullptr);
    EXPECT_THAT(recording::armed_timers(), IsEmpty());
}

TEST_P(CheckAckDenyLog, WithoutAReasonTheModuleIsNamed)
{
    CardNode *node = waiting_card();
    const CardNode decided = denied(*node, "");
    EXPECT_EQ(denied_by({}, "m1", ""), 0);
    EXPECT_EQ(recording::take(), heard({consumed("m1"),
                                        {denied_line("m1", ""), disabled_line("m1 not compatible")},
                                        all_denied({}),
                                        POWERED_OFF,
                                        check_ended(decided, "t1")}));
    EXPECT_STREQ(node->reason, "") << "the fallback is for the system log alone";
    EXPECT_THAT(recording::syslog_formats(), ElementsAre(DISABLED_FORMAT, SHUTDOWN_FORMAT));
}

TEST_P(CheckAckDenyLog, OffTheMasterThePowerGoesOffAllTheSame)
{
    become(2);
    CardNode *node = waiting_card();
    const CardNode decided = denied(*node, "no");
    EXPECT_EQ(denied_by({}, "m1", "no"), 0);
    EXPECT_EQ(recording::take(), heard({consumed("m1"),
                                        {denied_line("m1", "no"), disabled_line("no")},
                                        mom_result_set({}, 2),
                                        refused(card_result_set({}, 2), "app_cg_update_card_check_result", 2),
                                        refused(dev_status_set({}), "app_cg_update_dev_check_result", 2),
                                        POWERED_OFF,
                                        check_ended(decided, "t1")}));
}

TEST_P(CheckAckDenyLog, APowerOffThatFailsIsCalledASuccessToo)
{
    CardNode *node = waiting_card();
    const CardNode decided = denied(*node, "no");
    recording::script("vx_mom_set_sync", {-5});
    EXPECT_EQ(denied_by({}, "m1", "no"), 0);
    EXPECT_EQ(recording::take(),
              heard({consumed("m1"),
                     {denied_line("m1", "no"), disabled_line("no")},
                     all_denied({}),
                     {POWERED_OFF[0], POWER_OFF, said(100, "Power off devid 1, slotid 3, sslotid 2  failed"),
                      SHUTDOWN_LINE, said(80, "set power off success!!!")},
                     check_ended(decided, "t1")}));
    EXPECT_EQ(node->stat, 2);
    EXPECT_EQ(node->reported, 1);
}

TEST_F(CheckAckDeny, TheCardIsReportedOnlyAfterItsResultsAndThePowerOff)
{
    CardNode *node = waiting_card();
    Journal seen;
    look_inside("vx_mom_set", {}, &seen); // the result by TIPC node id
    look_inside("vx_mom_hmset", {}, &seen);
    look_inside("vx_mom_set", {}, &seen); // the custom status
    look_inside("vx_mom_set_sync", {}, &seen);
    denied_by({}, "m1", "no");
    EXPECT_THAT(seen, ElementsAre("vx_mom_set: stat 2 reported 0", "vx_mom_hmset: stat 2 reported 0",
                                  "vx_mom_set: stat 2 reported 0", "vx_mom_set_sync: stat 2 reported 0"));
    EXPECT_EQ(node->reported, 1);
}

TEST_F(CheckAckDeny, FailedWritesDoNotStopTheDenial)
{
    CardNode *node = waiting_card();
    app_cg_verbosity = 0;
    recording::script("vx_mom_set", {-7, -7});
    recording::script("vx_mom_hmset", {-7});
    recording::script("vx_mom_set_sync", {-7});
    recording::script("vx_mom_del", {-7, -7});
    recording::script("printk_syslog_ext", {-1, -1});
    const Journal expected = heard_at(0, join({ack_deleted({}, "m1"),
                                               {disabled_line("no")},
                                               all_denied({}),
                                               POWERED_OFF,
                                               check_ended(*node, "t1")}));
    EXPECT_EQ(denied_by({}, "m1", "no"), 0);
    EXPECT_EQ(recording::take(), expected);
    EXPECT_EQ(node->reported, 1);
    EXPECT_EQ(node->timer, nullptr);
}

TEST_F(CheckAckDeny, EveryVerdictButZeroDenies)
{
    for (const int32_t ret : {1, -1, 2, 256, 2147483647, -2147483647 - 1}) {
        SCOPED_TRACE(ret);
        Card card;
        CardNode *node = waiting_card(card);
        EXPECT_EQ(acknowledged(card, "m1", ret, "no", 6), 0);
        EXPECT_EQ(node->stat, 2);
        EXPECT_THAT(recording::take(), Contains(POWER_OFF));
        card_deleted(card);
    }
}

TEST_F(CheckAckDeny, EveryDenyingModuleMayBeTheFirst)
{
    for (const char *module : {"m1", "m2", "m3"}) {
        SCOPED_TRACE(module);
        CardNode *node = waiting_card();
        EXPECT_EQ(denied_by({}, module, "no"), 0);
        EXPECT_EQ(node->stat, 2);
        EXPECT_THAT(recording::take(), Contains(denied_line(module, "no")));
        card_deleted({});
    }
}

// ---- after a denial ----

TEST_P(CheckAckDenyLog, ASecondDenyChangesNothing)
{
    CardNode *node = waiting_card();
    denied_by({}, "m1", "first");
    recording::take();
    const std::string before = dump_text(*node);
    EXPECT_EQ(denied_by({}, "m2", "second"), 0);
    EXPECT_EQ(recording::take(),
              heard({consumed("m2"), {said(80, "dev[1] slot[3] sslot[2] is already disable.\r\n")}}));
    EXPECT_EQ(dump_text(*node), before);
}

TEST_F(CheckAckDeny, ADeniedCardThatWasNotReportedIsDeniedAgain)
{
    CardNode *node = waiting_card();
    node->stat = 2;
    denied_by({}, "m1", "no");
    EXPECT_THAT(system_log(recording::take()), ElementsAre(disabled_line("no"), SHUTDOWN_LINE));
    EXPECT_EQ(node->reported, 1);
}

TEST_P(CheckAckDenyLog, ADeniedCardWaitsForTheModulesThatAreOutstanding)
{
    CardNode *node = waiting_card();
    denied_by({}, "m1", "no");
    recording::take();
    EXPECT_EQ(passed_by({}, "m2"), 0);
    EXPECT_EQ(recording::take(), heard({consumed("m2"),
                                        {said(100, "dev[1] slot[3] sslot[2]  is passed by[m2].\r\n"),
                                         said(80, "dev[1] slot[3] sslot[2] is waitting [5].\r\n")}}));
    EXPECT_EQ(node->stat, 2);
    EXPECT_EQ(node->reported, 1);
}

TEST_P(CheckAckDenyLog, TheLastPassTurnsADeniedCardIntoAPassedOne)
{
    CardNode *node = waiting_card();
    denied_by({}, "m1", "no");
    passed_by({}, "m1");
    passed_by({}, "m2");
    recording::take();
    CardNode decided = *node;
    decided.stat = 1;
    decided.wait_obj.app_cg_wait_obj_bmp = 0;
    EXPECT_EQ(passed_by({}, "m3"), 0);
    EXPECT_EQ(recording::take(), heard({consumed("m3"),
                                        {said(100, "dev[1] slot[3] sslot[2]  is passed by[m3].\r\n"),
                                         said(80, "dev[1] slot[3] sslot[2] is passed by all.\r\n")},
                                        all_passed({}),
                                        check_ended(decided, "")}));
    EXPECT_EQ(node->stat, 1);
    EXPECT_STREQ(node->reason, "no") << "the reason of the last denial is kept";
}

TEST_P(CheckAckDenyLog, APassedCardCanStillBeDenied)
{
    CardNode *node = waiting_card();
    for (const char *module : {"m1", "m2", "m3"}) {
        passed_by({}, module);
    }
    recording::take();
    const CardNode decided = denied(*node, "on second thoughts");
    EXPECT_EQ(denied_by({}, "m1", "on second thoughts"), 0);
    EXPECT_EQ(recording::take(),
              heard({consumed("m1"),
                     {denied_line("m1", "on second thoughts"), disabled_line("on second thoughts")},
                     all_denied({}),
                     POWERED_OFF,
                     check_ended(decided, "")}));
    EXPECT_EQ(node->stat, 2);
    EXPECT_EQ(node->wait_obj.app_cg_wait_obj_bmp, 0U);
}

// ---- reasons ----

TEST_F(CheckAckDeny, AReasonIsTextAndNoFormat)
{
    CardNode *node = waiting_card();
    denied_by({}, "m1", "100% of %s and %n");
    const Journal lines = recording::take();
    EXPECT_THAT(lines, Contains(denied_line("m1", "100% of %s and %n")));
    EXPECT_THAT(system_log(lines), ElementsAre(disabled_line("100% of %s and %n"), SHUTDOWN_LINE));
    EXPECT_STREQ(node->reason, "100% of %s and %n");
}

TEST_F(CheckAckDeny, AReasonOfAnyLengthStaysTerminated)
{
    for (const std::size_t length : {254U, 255U, 256U, 257U, 300U, 900U}) {
        SCOPED_TRACE(length);
        const std::string reason(length, 'r');
        const std::string stored = reason.substr(0, 255);
        CardNode *node = waiting_card();
        denied_by({}, "m1", reason);
        EXPECT_EQ(std::string(node->reason), stored);
        EXPECT_EQ(node->wait_obj.app_cg_wait_obj_num, 3) << "the field behind the reason";
        EXPECT_EQ(node->stat, 2) << "the field behind the reason";
        const Journal lines = recording::take();
        EXPECT_THAT(lines, Contains(denied_line("m1", reason)));
        EXPECT_THAT(system_log(lines), ElementsAre(disabled_line(reason), SHUTDOWN_LINE));
        app_cg_verbosity = 4;
        EXPECT_EQ(acknowledged({}, "m2", 1), 0);
        card_deleted({});
        EXPECT_THAT(recording::take(), Contains(testing::HasSubstr("reason[" + stored + "]")));
        app_cg_verbosity = 1;
    }
}

TEST_F(CheckAckDeny, AShorterReasonLeavesNothingOfALongerOne)
{
    CardNode *node = waiting_card();
    denied_by({}, "m1", std::string(300, 'r'));
    for (const char *module : {"m1", "m2", "m3"}) {
        passed_by({}, module);
    }
    denied_by({}, "m1", "short");
    EXPECT_STREQ(node->reason, "short");
}

TEST_F(CheckAckDeny, ALogLineIsCutAtItsLengthASystemLogLineIsNot)
{
    const std::string reason(2000, 'r');
    const std::string before = said(100, "");
    waiting_card();
    denied_by({}, "m1", reason);
    const Journal lines = recording::take();
    EXPECT_THAT(lines, Contains(denied_line("m1", reason).substr(0, before.size() + 1023)));
    EXPECT_THAT(system_log(lines), ElementsAre(disabled_line(reason), SHUTDOWN_LINE));
}

TEST_F(CheckAckDeny, TheFallbackNamesTheModuleAsItIsRegistered)
{
    register_modules({"fifteen-letters"});
    waiting_card();
    denied_by({}, "fifteen-letters", "");
    EXPECT_THAT(system_log(recording::take()),
                ElementsAre(disabled_line("fifteen-letters not compatible"), SHUTDOWN_LINE));
}

TEST_F(CheckAckDeny, TheSubSlotIsNotPartOfTheSystemLog)
{
    Card card;
    card.devid = 2;
    card.slotid = 14;
    card.sslotid = 9;
    waiting_card(card);
    denied_by(card, "m1", "no");
    EXPECT_THAT(
        system_log(recording::take()),
        ElementsAre("syslog 4 APP_CG CG_MNG 1: Card in slot 2/14 will be disabled due to reason: no.",
                    "syslog 4 APP_CG MIX_MNG 1: Card in slot 2/14 will be controlled to shutdown for not "
                    "compatible."));
}

} // namespace admission::check_ack_deny
