// The conditional removers of results and the removal of acknowledgements.
//
// A table of flag and status rather than a test for each pair: what matters is that exactly two of the pairs
// act, and a table shows at a glance that none is missing.
#include <gmock/gmock.h>

#include "admission.h"
#include "app_cg/card_nodes.h"
#include "app_cg/check_result.h"
#include "app_cg_dbg/logging.h"

namespace admission::check_result_removal
{

using testing::ElementsAre;

class CheckResultRemoval : public AdmissionTest
{
};

class CheckResultRemovalLog : public EveryVerbosity
{
};

INSTANTIATE_TEST_SUITE_P(Verbosity, CheckResultRemovalLog, every_verbosity(), verbosity_name);

const char *const HIT = "log 60 app_cg.cpp app_cg_node_pos_search: node:0x21, config_dev_type:17\r\n";
const char *const MOM_DEL =
    "vx_mom_del(1, p_libpub.app_cg_mom_deny_check_result{index={card_tipc_nodeid=4097}})";
const char *const CARD_DEL =
    "vx_mom_del(28, p_libpub.app_cg_card_deny_check_result{index={devid=1 slotid=3 sslotid=2}})";

std::string mom_log(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_del_mom_check_result: " + line;
}

std::string card_log(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_del_card_check_result: " + line;
}

std::string ack_log(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_del_check_ack: " + line;
}

// Puts the card into the table with this status.
CardNode *card_with_status(int32_t stat)
{
    CardNode templ = fresh_node({});
    templ.stat = stat;
    templ.reported = 1;
    CardNode *node = app_cg_node_init(templ, &g_app_cg_global.card_nodes);
    recording::take();
    return node;
}

// ---- result by TIPC node ----

TEST_P(CheckResultRemovalLog, AMomPassIsRemoved)
{
    card_with_status(1);
    EXPECT_EQ(app_cg_del_mom_check_result(1, 3, 2, 4097, 0), 0);
    EXPECT_EQ(recording::take(),
              heard({{mom_log(40, "del check result devid: 1, slotid: 3, sslotid: 2, tipc_nodeid: 4097,"
                                  "flag: 0"),
                      HIT, mom_log(40, "node state :1, flag:0"), MOM_DEL,
                      mom_log(80, "del mom check result pass dev[1] slot[3] sslot[2] "
                                  "card_tipc_nodeid[4097]")}}));
}

TEST_P(CheckResultRemovalLog, AMomDenyIsRemoved)
{
    card_with_status(2);
    EXPECT_EQ(app_cg_del_mom_check_result(1, 3, 2, 4097, 1), 0);
    EXPECT_EQ(recording::take(),
              heard({{mom_log(40, "del check result devid: 1, slotid: 3, sslotid: 2, tipc_nodeid: 4097,"
                                  "flag: 1"),
                      HIT, mom_log(40, "node state :2, flag:1"), MOM_DEL,
                      mom_log(80, "del mom check result deny dev[1] slot[3] sslot[2] "
                                  "card_tipc_nodeid[4097]")}}));
}

TEST_P(CheckResultRemovalLog, AMomRemovalFails)
{
    card_with_status(2);
    recording::script("vx_mom_del", {-5});
    EXPECT_EQ(app_cg_del_mom_check_result(1, 3, 2, 4097, 1), -5);
    EXPECT_EQ(recording::take(),
              heard({{mom_log(40, "del check result devid: 1, slotid: 3, sslotid: 2, tipc_nodeid: 4097,"
                                  "flag: 1"),
                      HIT, mom_log(40, "node state :2, flag:1"), MOM_DEL,
                      mom_log(100, "del mom check result dev[1] slot[3] sslot[2] card_tipc_nodeid[4097] "
                                   "failed")}}));
}

TEST_P(CheckResultRemovalLog, AMomRemovalForAnUnknownCardIsEleven)
{
    EXPECT_EQ(app_cg_del_mom_check_result(1, 3, 2, 4097, 0), 11);
    EXPECT_EQ(recording::take(),
              heard({{mom_log(40, "del check result devid: 1, slotid: 3, sslotid: 2, tipc_nodeid: 4097,"
                                  "flag: 0"),
                      mom_log(100, "del mom check result error devid: 1, sloti 3, sslotid: 2")}}));
}

// ---- result by position ----

TEST_P(CheckResultRemovalLog, ACardPassIsRemoved)
{
    card_with_status(1);
    EXPECT_EQ(app_cg_del_card_check_result(1, 3, 2, 0), 0);
    EXPECT_EQ(recording::take(),
              heard({{card_log(40, "del check result devid: 1, slotid: 3, sslotid: 2,flag: 0"), HIT,
                      card_log(40, "node state :1, flag :0"), CARD_DEL,
                      card_log(80, "del card check result pass dev[1] slot[3]")}}));
}

TEST_P(CheckResultRemovalLog, ACardDenyIsRemoved)
{
    card_with_status(2);
    EXPECT_EQ(app_cg_del_card_check_result(1, 3, 2, 1), 0);
    EXPECT_EQ(recording::take(),
              heard({{card_log(40, "del check result devid: 1, slotid: 3, sslotid: 2,flag: 1"), HIT,
                      card_log(40, "node state :2, flag :1"), CARD_DEL,
                      card_log(80, "del card check result deny dev[1] slot[3]")}}));
}

TEST_P(CheckResultRemovalLog, ACardRemovalFails)
{
    card_with_status(1);
    recording::script("vx_mom_del", {-5});
    EXPECT_EQ(app_cg_del_card_check_result(1, 3, 2, 0), -5);
    EXPECT_EQ(recording::take(),
              heard({{card_log(40, "del check result devid: 1, slotid: 3, sslotid: 2,flag: 0"), HIT,
                      card_log(40, "node state :1, flag :0"), CARD_DEL,
                      card_log(100, "del card check result dev[1] slot[3] sslot[2] failed")}}));
}

TEST_P(CheckResultRemovalLog, ACardRemovalForAnUnknownCardIsEleven)
{
    EXPECT_EQ(app_cg_del_card_check_result(1, 3, 2, 1), 11);
    EXPECT_EQ(recording::take(),
              heard({{card_log(40, "del check result devid: 1, slotid: 3, sslotid: 2,flag: 1"),
                      // It speaks of the other result on purpose.
                      card_log(100, "del mom check result error devid: 1, sloti 3, sslotid: 2")}}));
}

// ---- both ----

TEST_P(CheckResultRemovalLog, OnlyAMatchingResultIsRemoved)
{
    const struct {
        int32_t flag;
        int32_t stat;
    } idle[] = {{0, 0}, {0, 2}, {1, 0}, {1, 1}, {2, 0}, {2, 1}, {2, 2}, {-1, 1}, {-1, 2}, {256, 1}};
    CardNode *node = card_with_status(0);
    for (const auto &one : idle) {
        SCOPED_TRACE(testing::Message() << "flag " << one.flag << " status " << one.stat);
        node->stat = one.stat;
        EXPECT_EQ(app_cg_del_mom_check_result(1, 3, 2, 4097, one.flag), 0);
        EXPECT_EQ(app_cg_del_card_check_result(1, 3, 2, one.flag), 0);
        EXPECT_EQ(recording::take(), heard({mom_result_removed({}, one.flag, one.stat),
                                            card_result_removed({}, one.flag, one.stat)}));
    }
}

TEST_F(CheckResultRemoval, RemovalIsNotTheMastersPrivilege)
{
    for (const int32_t role : {0, 1, 2, 3}) {
        SCOPED_TRACE(role);
        become(role);
        CardNode *node = card_with_status(1);
        EXPECT_EQ(app_cg_del_mom_check_result(1, 3, 2, 4097, 0), 0);
        EXPECT_EQ(app_cg_del_card_check_result(1, 3, 2, 0), 0);
        EXPECT_THAT(recording::take(), ElementsAre(MOM_DEL, CARD_DEL));
        ASSERT_NE(node, nullptr);
        app_cg_node_del(1, 3, 2);
    }
}

TEST_F(CheckResultRemoval, TheNodeStaysAsItIs)
{
    for (const int32_t stat : {1, 2}) {
        CardNode *node = card_with_status(stat);
        const std::string before = dump_text(*node);
        app_cg_del_mom_check_result(1, 3, 2, 4097, stat - 1);
        app_cg_del_card_check_result(1, 3, 2, stat - 1);
        EXPECT_EQ(dump_text(*node), before);
        app_cg_node_del(1, 3, 2);
    }
}

TEST_F(CheckResultRemoval, TheTipcNodeOfTheArgumentCountsNotTheNodes)
{
    card_with_status(1);
    app_cg_del_mom_check_result(1, 3, 2, 5, 0);
    EXPECT_THAT(
        recording::take(),
        ElementsAre("vx_mom_del(1, p_libpub.app_cg_mom_deny_check_result{index={card_tipc_nodeid=5}})"));
}

// ---- acknowledgements ----

TEST_P(CheckResultRemovalLog, OneAcknowledgementIsDeleted)
{
    EXPECT_EQ(app_cg_del_check_ack(1, 3, 2, "m1", 0), 0);
    EXPECT_EQ(recording::take(),
              heard({{ack_log(40, "del dev[1] slot[3] sslot[2], mod_name[m1], batch[0]"),
                      "vx_mom_del(1, p_libpub.app_cg_card_check_ack{index={devid=1 slotid=3 t_sslotid=2 "
                      "mod_name=\"m1\"}})",
                      ack_log(40, "leave")}}));
}

TEST_P(CheckResultRemovalLog, AllAcknowledgementsOfAPositionAreDeleted)
{
    for (const char *name : {"", "m1"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(app_cg_del_check_ack(1, 3, 2, name, 1), 0);
        EXPECT_EQ(
            recording::take(),
            heard({{ack_log(40, std::string("del dev[1] slot[3] sslot[2], mod_name[") + name + "], batch[1]"),
                    "vx_mom_pdel(1, p_libpub.app_cg_card_check_ack{index={devid=1 slotid=3 "
                    "t_sslotid=2}}, 3)",
                    ack_log(40, "leave")}}));
    }
}

TEST_P(CheckResultRemovalLog, AnAcknowledgementCannotBeDeleted)
{
    recording::script("vx_mom_del", {-5});
    EXPECT_EQ(app_cg_del_check_ack(1, 3, 2, "m1", 0), -5);
    EXPECT_EQ(recording::take(),
              heard({{ack_log(40, "del dev[1] slot[3] sslot[2], mod_name[m1], batch[0]"),
                      "vx_mom_del(1, p_libpub.app_cg_card_check_ack{index={devid=1 slotid=3 t_sslotid=2 "
                      "mod_name=\"m1\"}})",
                      ack_log(100, "del dev[1] slot[3] sslot[2] mod_name[m1] failed")}}));
}

TEST_P(CheckResultRemovalLog, ThePatternDeletionFails)
{
    recording::script("vx_mom_pdel", {-5});
    EXPECT_EQ(app_cg_del_check_ack(1, 3, 2, "", 255), -5);
    EXPECT_EQ(recording::take(),
              heard({{ack_log(40, "del dev[1] slot[3] sslot[2], mod_name[], batch[255]"),
                      "vx_mom_pdel(1, p_libpub.app_cg_card_check_ack{index={devid=1 slotid=3 "
                      "t_sslotid=2}}, 3)",
                      ack_log(100, "pdel dev[1] slot[3] sslot[2] failed")}}));
}

TEST_P(CheckResultRemovalLog, AModuleNameIsNeededEvenForThePattern)
{
    EXPECT_EQ(app_cg_del_check_ack(1, 3, 2, nullptr, 0), -4);
    EXPECT_EQ(app_cg_del_check_ack(1, 3, 2, nullptr, 1), -4);
    const std::string refusal = ack_log(100, "mod_name NULL pointer, addr error!\n");
    EXPECT_EQ(recording::take(), heard({{refusal, refusal}}));
}

TEST_F(CheckResultRemoval, AcknowledgementsNeedNoCard)
{
    EXPECT_EQ(node_count(), 0U);
    EXPECT_EQ(app_cg_del_check_ack(1, 3, 0, "a name of more than fifteen", 0), 0);
    EXPECT_THAT(recording::take(),
                ElementsAre("vx_mom_del(1, p_libpub.app_cg_card_check_ack{index={devid=1 slotid=3 "
                            "mod_name=\"a name of more than fifteen\"}})"));
}

} // namespace admission::check_result_removal
