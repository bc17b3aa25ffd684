// Acknowledgements on their way to a decision: what is refused, what is consumed, and PASS after PASS.
// Denials are in check_ack_deny_test.cpp.
#include "app_cg/check_ack.h"

#include <gmock/gmock.h>

#include "admission.h"
#include "app_cg/check_request.h"
#include "app_cg_dbg/logging.h"

namespace admission::check_ack
{

using testing::ElementsAre;
using testing::IsEmpty;

std::string said(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_check_ack_pmsg_f: " + line;
}

// A card that waits for m1, m2 and m3.
CardNode *waiting_card(const Card &card = {})
{
    card_written(card);
    recording::take();
    return node_of(card);
}

std::string passed_line(const char *module)
{
    return said(100, std::string("dev[1] slot[3] sslot[2]  is passed by[") + module + "].\r\n");
}

// What every acknowledgement of a known card begins with.
Journal consumed(const char *module, const char *cmd = "4")
{
    return join({{said(40, std::string("pmsg->cmd ") + cmd)}, ack_deleted({}, module), found({})});
}

int32_t deliver(int32_t cmd, vx_mom_result_t *result)
{
    vx_mom_pmsg_t pmsg{};
    pmsg.cmd = cmd;
    pmsg.result = result;
    return app_cg_check_ack_pmsg_f(nullptr, &pmsg);
}

class CheckAck : public AdmissionTest
{
};

class CheckAckLog : public EveryVerbosity
{
};

INSTANTIATE_TEST_SUITE_P(Verbosity, CheckAckLog, every_verbosity(), verbosity_name);

// ---- what is no acknowledgement ----

TEST_P(CheckAckLog, ANotificationIsNeeded)
{
    EXPECT_EQ(app_cg_check_ack_pmsg_f(nullptr, nullptr), -4);
    EXPECT_EQ(recording::take(), heard({{said(100, "pmsg NULL pointer, addr error!\n")}}));
}

TEST_P(CheckAckLog, TheSubscriptionIsNoted)
{
    EXPECT_EQ(deliver(29, nullptr), 0);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 29"), said(80, "subscribe ok")}}));
}

TEST_P(CheckAckLog, OtherCommandsAreIgnored)
{
    waiting_card();
    for (const int32_t cmd : {0, 1, 2, 3, 5, 7, 28, 30, -4}) {
        SCOPED_TRACE(cmd);
        const std::string trace = said(40, "pmsg->cmd " + std::to_string(cmd));
        EXPECT_EQ(acknowledged({}, "m1", 1, "no", cmd), 0);
        EXPECT_EQ(recording::take(), heard({{trace, trace}}));
    }
    EXPECT_EQ(node_of({})->stat, 0);
}

TEST_P(CheckAckLog, ANotificationWithoutResultIsRefused)
{
    for (const int32_t cmd : {4, 6}) {
        EXPECT_EQ(deliver(cmd, nullptr), -21);
        EXPECT_EQ(recording::take(),
                  heard({{said(40, "pmsg->cmd " + std::to_string(cmd)), said(100, "result NULL")}}));
    }
}

TEST_P(CheckAckLog, AnErrorOfTheStoreIsRefused)
{
    waiting_card();
    records::AckRecord ack = records::ack(1, 3, 2, "m1");
    vx_mom_result_t result{5, &ack.deny("no").record()->base};
    EXPECT_EQ(deliver(4, &result), -21);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 4"), said(100, "result error_code 5")}}));
    result = {-1, nullptr};
    EXPECT_EQ(deliver(6, &result), -21);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 6"), said(100, "result error_code -1")}}));
    EXPECT_EQ(node_of({})->stat, 0);
}

TEST_P(CheckAckLog, AResultWithoutAcknowledgementIsRefused)
{
    vx_mom_result_t result{0, nullptr};
    EXPECT_EQ(deliver(4, &result), -4);
    EXPECT_EQ(recording::take(),
              heard({{said(40, "pmsg->cmd 4"), said(100, "ack NULL pointer, addr error!\n")}}));
}

TEST_P(CheckAckLog, AnAcknowledgementWithoutIndexIsRefused)
{
    records::AckRecord ack = records::ack(1, 3, 2, "m1");
    vx_mom_result_t result{0, &ack.without_index().record()->base};
    EXPECT_EQ(deliver(6, &result), -4);
    EXPECT_EQ(recording::take(),
              heard({{said(40, "pmsg->cmd 6"), said(100, "ack->index NULL pointer, addr error!\n")}}));
}

// ---- unknown cards and modules ----

TEST_P(CheckAckLog, AnUnknownCardsAcknowledgementIsDeletedAndIgnored)
{
    EXPECT_EQ(passed_by({}, "m2"), -11);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 4")},
                                        ack_deleted({}, "m2"),
                                        {said(100, "find node error[(nil)][1], ignore.\r\n")}}));
    EXPECT_EQ(node_count(), 0U);
}

TEST_P(CheckAckLog, AnUnknownModulesAcknowledgementIsDeletedAndIgnored)
{
    CardNode *node = waiting_card();
    const std::string before = dump_text(*node);
    EXPECT_EQ(denied_by({}, "m4", "no"), -11);
    EXPECT_EQ(recording::take(),
              heard({consumed("m4"),
                     {said(100, text("find node error[%p][-1], ignore.\r\n", static_cast<void *>(node)))}}));
    EXPECT_EQ(dump_text(*node), before);
}

TEST_P(CheckAckLog, NeitherCardNorModuleIsKnown)
{
    EXPECT_EQ(denied_by({}, "", "no"), -11);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 4")},
                                        ack_deleted({}, ""),
                                        {said(100, "find node error[(nil)][-1], ignore.\r\n")}}));
}

TEST_F(CheckAck, TheWholePositionMustMatch)
{
    waiting_card();
    Card neighbour;
    neighbour.sslotid = 1;
    EXPECT_EQ(passed_by(neighbour, "m1"), -11);
    EXPECT_EQ(node_of({})->wait_obj.app_cg_wait_obj_bmp, 7U);
}

TEST_F(CheckAck, AModuleIsKnownByTheFifteenCharactersOfItsEntry)
{
    register_modules({"m1", "fifteen-letters"});
    waiting_card();
    EXPECT_EQ(passed_by({}, "fifteen-letters"), 0);
    EXPECT_EQ(passed_by({}, "fifteen-letters-and-more"), -11);
    EXPECT_EQ(passed_by({}, "fifteen-letter"), -11);
    EXPECT_EQ(node_of({})->wait_obj.app_cg_wait_obj_bmp, 1U);
}

TEST_F(CheckAck, TheRegistryOfTodayDecidesWhoAModuleIs)
{
    CardNode *node = waiting_card();
    register_modules({"m3", "m1"});
    EXPECT_EQ(passed_by({}, "m3"), 0);
    EXPECT_EQ(node->wait_obj.app_cg_wait_obj_bmp, 6U);
    EXPECT_EQ(passed_by({}, "m2"), -11);
    EXPECT_EQ(node->wait_obj.app_cg_wait_obj_bmp, 6U);
}

TEST_F(CheckAck, AnAcknowledgementThatCannotBeDeletedCountsAllTheSame)
{
    CardNode *node = waiting_card();
    recording::script("vx_mom_del", {-7});
    EXPECT_EQ(passed_by({}, "m1"), 0);
    EXPECT_THAT(recording::take(),
                ElementsAre(heard_at(0, ack_deleted({}, "m1")).front(),
                            error("app_cg_del_check_ack", "del dev[1] slot[3] sslot[2] mod_name[m1] failed"),
                            passed_line("m1")));
    EXPECT_EQ(node->wait_obj.app_cg_wait_obj_bmp, 6U);
}

// ---- passing ----

TEST_P(CheckAckLog, WhileModulesAreOutstandingTheCardWaits)
{
    CardNode *node = waiting_card();
    EXPECT_EQ(passed_by({}, "m1"), 0);
    EXPECT_EQ(recording::take(),
              heard({consumed("m1"),
                     {passed_line("m1"), said(80, "dev[1] slot[3] sslot[2] is waitting [6].\r\n")}}));
    EXPECT_EQ(acknowledged({}, "m3", 0, "fine", 6), 0);
    EXPECT_EQ(recording::take(),
              heard({consumed("m3", "6"),
                     {passed_line("m3"), said(80, "dev[1] slot[3] sslot[2] is waitting [2].\r\n")}}));
    EXPECT_EQ(node->stat, 0);
    EXPECT_EQ(node->reported, 0);
    EXPECT_EQ(node->wait_obj.app_cg_wait_obj_bmp, 2U);
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t1"));
}

TEST_P(CheckAckLog, ARepeatedPassChangesNothing)
{
    CardNode *node = waiting_card();
    passed_by({}, "m1");
    recording::take();
    EXPECT_EQ(passed_by({}, "m1"), 0);
    EXPECT_EQ(recording::take(),
              heard({consumed("m1"),
                     {passed_line("m1"), said(80, "dev[1] slot[3] sslot[2] is waitting [6].\r\n")}}));
    EXPECT_EQ(node->wait_obj.app_cg_wait_obj_bmp, 6U);
}

TEST_P(CheckAckLog, TheLastPassPassesTheCard)
{
    CardNode *node = waiting_card();
    passed_by({}, "m3");
    passed_by({}, "m1");
    recording::take();
    CardNode decided = *node;
    decided.stat = 1;
    decided.reported = 1;
    decided.wait_obj.app_cg_wait_obj_bmp = 0;
    EXPECT_EQ(passed_by({}, "m2"), 0);
    EXPECT_EQ(recording::take(),
              heard({consumed("m2"),
                     {passed_line("m2"), said(80, "dev[1] slot[3] sslot[2] is passed by all.\r\n")},
                     all_passed({}),
                     check_ended(decided, "t1")}));
    decided.timer = nullptr;
    EXPECT_EQ(dump_text(*node), dump_text(decided));
    EXPECT_THAT(recording::armed_timers(), IsEmpty());
}

TEST_F(CheckAck, TheCardIsReportedOnlyAfterItsResults)
{
    register_modules({"m1"});
    CardNode *node = waiting_card();
    Journal seen;
    look_inside("vx_mom_del", {}, &seen); // the acknowledgement
    look_inside("vx_mom_set", {}, &seen);
    look_inside("vx_mom_hmset", {}, &seen);
    look_inside("vx_mom_del", {}, &seen); // the custom status
    passed_by({}, "m1");
    EXPECT_THAT(seen, ElementsAre("vx_mom_del: stat 0 reported 0", "vx_mom_set: stat 1 reported 0",
                                  "vx_mom_hmset: stat 1 reported 0", "vx_mom_del: stat 1 reported 0"));
    EXPECT_EQ(node->reported, 1);
}

TEST_P(CheckAckLog, APassOfAPassedCardPublishesNothing)
{
    CardNode *node = waiting_card();
    for (const char *module : {"m1", "m2", "m3"}) {
        passed_by({}, module);
    }
    recording::take();
    const std::string before = dump_text(*node);
    EXPECT_EQ(passed_by({}, "m2"), 0);
    EXPECT_EQ(recording::take(),
              heard({consumed("m2"),
                     {passed_line("m2"), said(80, "dev[1] slot[3] sslot[2] is already passed.\r\n")}}));
    EXPECT_EQ(dump_text(*node), before);
}

TEST_F(CheckAck, APassedCardThatWasNotReportedIsPublished)
{
    CardNode *node = waiting_card();
    node->stat = 1;
    node->wait_obj.app_cg_wait_obj_bmp = 1;
    EXPECT_EQ(passed_by({}, "m1"), 0);
    EXPECT_THAT(recording::take(), testing::IsSupersetOf(heard_at(0, all_passed({}))));
    EXPECT_EQ(node->reported, 1);
}

TEST_P(CheckAckLog, OffTheMasterOnlyTheResultByTipcNodeIsWritten)
{
    become(3);
    register_modules({"m1"});
    CardNode *node = waiting_card();
    CardNode decided = *node;
    decided.stat = 1;
    decided.reported = 1;
    decided.wait_obj.app_cg_wait_obj_bmp = 0;
    EXPECT_EQ(passed_by({}, "m1"), 0);
    EXPECT_EQ(recording::take(),
              heard({consumed("m1"),
                     {passed_line("m1"), said(80, "dev[1] slot[3] sslot[2] is passed by all.\r\n")},
                     mom_result_set({}, 1),
                     refused(card_result_set({}, 1), "app_cg_update_card_check_result", 3),
                     refused(dev_status_deleted({}, 1, 1), "app_cg_update_dev_check_result", 3),
                     check_ended(decided, "t1")}));
    EXPECT_EQ(node->reported, 1);
}

TEST_F(CheckAck, FailedWritesDoNotStopThePassing)
{
    register_modules({"m1"});
    CardNode *node = waiting_card();
    app_cg_verbosity = 0;
    recording::script("vx_mom_set", {-7});
    recording::script("vx_mom_hmset", {-7});
    recording::script("vx_mom_del", {0, -7, -7});
    const Journal expected =
        heard_at(0, join({ack_deleted({}, "m1"), all_passed({}), check_ended(*node, "t1")}));
    EXPECT_EQ(passed_by({}, "m1"), 0);
    EXPECT_EQ(recording::take(), expected);
    EXPECT_EQ(node->stat, 1);
    EXPECT_EQ(node->reported, 1);
    EXPECT_EQ(node->timer, nullptr);
}

TEST_F(CheckAck, TheFlagOfTheVerdictIsNotConsulted)
{
    register_modules({"m1"});
    CardNode *node = waiting_card();
    records::AckRecord ack = records::ack(1, 3, 2, "m1");
    ack.pass().record()->ret_flag = 1;
    vx_mom_result_t result{0, &ack.record()->base};
    EXPECT_EQ(deliver(4, &result), 0);
    EXPECT_EQ(node->stat, 1);
}

TEST_F(CheckAck, SixteenModulesHaveToAgree)
{
    std::vector<std::string> modules;
    modules.reserve(16);
    for (int i = 0; i < 16; ++i) {
        modules.push_back("mod" + std::to_string(i));
    }
    register_modules(modules);
    CardNode *node = waiting_card();
    ASSERT_EQ(node->wait_obj.app_cg_wait_obj_bmp, 65535U);
    for (int i = 0; i < 15; ++i) {
        passed_by({}, modules[static_cast<std::size_t>(i)]);
        ASSERT_EQ(node->stat, 0);
    }
    EXPECT_EQ(node->wait_obj.app_cg_wait_obj_bmp, 32768U);
    passed_by({}, "mod15");
    EXPECT_EQ(node->stat, 1);
}

} // namespace admission::check_ack
