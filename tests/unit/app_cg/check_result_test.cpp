// The three result writers: records, role gate, tolerated answers, texts.
//
// Texts and records stand here letter by letter; the other tests of admission use the builders of
// admission.h, which this file keeps honest.
#include "app_cg/check_result.h"

#include <gmock/gmock.h>

#include "admission.h"
#include "app_cg_dbg/logging.h"

namespace admission::check_result
{

using testing::ElementsAre;

class CheckResult : public AdmissionTest
{
};

class CheckResultLog : public EveryVerbosity
{
};

INSTANTIATE_TEST_SUITE_P(Verbosity, CheckResultLog, every_verbosity(), verbosity_name);

const char *const MOM_KEY = "p_libpub.app_cg_mom_deny_check_result{index={card_tipc_nodeid=4097}";
const char *const CARD_KEY = "p_libpub.app_cg_card_deny_check_result{index={devid=1 slotid=3 sslotid=2}";
const char *const DEV_KEY = "p_dev.dm_set_card_custom_st{index={t_devid=1 t_slotid=3 t_sslotid=2 "
                            "t_mod_name=\"APP_CG\" t_reason=\"not compatible\"}";

std::string mom_log(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_update_mom_check_result: " + line;
}

std::string card_log(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_update_card_check_result: " + line;
}

std::string dev_log(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_update_dev_check_result: " + line;
}

// ---- by TIPC node, database 1 ----

TEST_P(CheckResultLog, MomPassIsWritten)
{
    EXPECT_EQ(app_cg_update_mom_check_result(1, 3, 2, 1, 1, 3, 4097), 0);
    EXPECT_EQ(
        recording::take(),
        heard({{mom_log(40, "update dev[1] slot[3] sslot[2], stat[1] op[SET], node_type[3] "
                            "tipc_nodeid[4097|0x1001]"),
                std::string("vx_mom_set(1, ") + MOM_KEY + " stat=APP_CG_CHECK_PASS node_type=DM_TYPE_LC})",
                mom_log(40, "leave")}}));
}

TEST_P(CheckResultLog, MomDenyIsWritten)
{
    EXPECT_EQ(app_cg_update_mom_check_result(1, 3, 2, 2, 1, 3, 4097), 0);
    EXPECT_EQ(
        recording::take(),
        heard({{mom_log(40, "update dev[1] slot[3] sslot[2], stat[2] op[SET], node_type[3] "
                            "tipc_nodeid[4097|0x1001]"),
                std::string("vx_mom_set(1, ") + MOM_KEY + " node_type=DM_TYPE_LC})", mom_log(40, "leave")}}));
}

TEST_P(CheckResultLog, MomResultIsDeletedByItsKeyAlone)
{
    EXPECT_EQ(app_cg_update_mom_check_result(1, 3, 2, 1, 0, 3, 4097), 0);
    EXPECT_EQ(recording::take(),
              heard({{mom_log(40, "update dev[1] slot[3] sslot[2], stat[1] op[DEL], node_type[3] "
                                  "tipc_nodeid[4097|0x1001]"),
                      std::string("vx_mom_del(1, ") + MOM_KEY + "})", mom_log(40, "leave")}}));
}

TEST_P(CheckResultLog, MomWriteFails)
{
    recording::script("vx_mom_set", {-7});
    EXPECT_EQ(app_cg_update_mom_check_result(1, 3, 2, 2, 1, 3, -1), -7);
    EXPECT_EQ(recording::take(),
              heard({{mom_log(40, "update dev[1] slot[3] sslot[2], stat[2] op[SET], node_type[3] "
                                  "tipc_nodeid[-1|0xffffffff]"),
                      "vx_mom_set(1, p_libpub.app_cg_mom_deny_check_result{index={card_tipc_nodeid=-1} "
                      "node_type=DM_TYPE_LC})",
                      mom_log(100, "update dev[1] slot[3] sslot[2], card_tipc_nodeid[-1|0xffffffff] stat[2] "
                                   "op[SET], node_type[3], rv -7")}}));
}

TEST_P(CheckResultLog, MomDeletionFails)
{
    recording::script("vx_mom_del", {-7});
    EXPECT_EQ(app_cg_update_mom_check_result(1, 3, 2, 2, 0, 3, 4097), -7);
    EXPECT_EQ(recording::take(),
              heard({{mom_log(40, "update dev[1] slot[3] sslot[2], stat[2] op[DEL], node_type[3] "
                                  "tipc_nodeid[4097|0x1001]"),
                      std::string("vx_mom_del(1, ") + MOM_KEY + "})",
                      mom_log(100, "del dev[1] slot[3] sslot[2] card_tipc_nodeid[4097|0x1001] failed")}}));
}

TEST_F(CheckResult, TheLongestSlotIsWrittenInFull)
{
    recording::script("vx_mom_del", {-7});
    EXPECT_EQ(app_cg_update_mom_check_result(1, -2147483647 - 1, 2, 2, 0, 3, 4097), -7);
    EXPECT_THAT(recording::take(), ElementsAre(std::string("vx_mom_del(1, ") + MOM_KEY + "})",
                                               mom_log(100, "del dev[1] slot[-2147483648] sslot[2] "
                                                            "card_tipc_nodeid[4097|0x1001] failed")));
}

TEST_F(CheckResult, MomTakesAbsentForAFailure)
{
    recording::script("vx_mom_set", {-5});
    recording::script("vx_mom_del", {-5});
    EXPECT_EQ(app_cg_update_mom_check_result(1, 3, 2, 1, 1, 3, 4097), -5);
    EXPECT_EQ(app_cg_update_mom_check_result(1, 3, 2, 1, 0, 3, 4097), -5);
    EXPECT_THAT(
        recording::take(),
        ElementsAre(std::string("vx_mom_set(1, ") + MOM_KEY +
                        " stat=APP_CG_CHECK_PASS node_type=DM_TYPE_LC})",
                    mom_log(100, "update dev[1] slot[3] sslot[2], card_tipc_nodeid[4097|0x1001] "
                                 "stat[1] op[SET], node_type[3], rv -5"),
                    std::string("vx_mom_del(1, ") + MOM_KEY + "})",
                    mom_log(100, "del dev[1] slot[3] sslot[2] card_tipc_nodeid[4097|0x1001] failed")));
}

TEST_F(CheckResult, APositiveAnswerIsAFailureToo)
{
    recording::script("vx_mom_set", {1, 1});
    recording::script("vx_mom_hmset", {1});
    EXPECT_EQ(app_cg_update_mom_check_result(1, 3, 2, 1, 1, 3, 4097), 1);
    EXPECT_EQ(app_cg_update_card_check_result(1, 3, 2, 1, 1, 3, 33, 17), 1);
    EXPECT_EQ(app_cg_update_dev_check_result(1, 3, 2, 2, 1), 1);
}

TEST_F(CheckResult, OnlyStatusOneIsStoredAsPass)
{
    for (const int32_t stat : {0, 2, 3, -1, 100}) {
        SCOPED_TRACE(stat);
        app_cg_update_mom_check_result(1, 3, 2, stat, 1, 0, 4097);
        app_cg_update_card_check_result(1, 3, 2, stat, 1, 0, 0, 0);
        EXPECT_THAT(recording::take(),
                    ElementsAre(std::string("vx_mom_set(1, ") + MOM_KEY + "})",
                                std::string("vx_mom_hmset(28, ") + CARD_KEY + "}, [6 7 8])"));
    }
}

TEST_F(CheckResult, EveryOperationButZeroWrites)
{
    app_cg_verbosity = 4;
    for (const int32_t op : {1, 2, -1, 256}) {
        SCOPED_TRACE(op);
        app_cg_update_mom_check_result(1, 3, 2, 1, op, 3, 4097);
        app_cg_update_card_check_result(1, 3, 2, 1, op, 3, 0x21, 17);
        app_cg_update_dev_check_result(1, 3, 2, 2, op);
        EXPECT_EQ(recording::take(),
                  join({mom_result_set({}, 1), card_result_set({}, 1), dev_status_set({})}));
    }
}

TEST_F(CheckResult, ANodeTypeWithoutANameIsStoredAsItCame)
{
    for (const int32_t node_type : {8, 1000, -1}) {
        app_cg_update_mom_check_result(1, 3, 2, 1, 1, node_type, 4097);
        EXPECT_THAT(recording::take(),
                    ElementsAre(std::string("vx_mom_set(1, ") + MOM_KEY +
                                " stat=APP_CG_CHECK_PASS node_type=" + std::to_string(node_type) + "})"));
    }
}

// ---- by position, database 28 ----

TEST_P(CheckResultLog, CardPassIsWritten)
{
    EXPECT_EQ(app_cg_update_card_check_result(1, 3, 2, 1, 1, 3, 33, 17), 0);
    EXPECT_EQ(recording::take(),
              heard({{card_log(40, "update dev[1] slot[3] sslot[2], stat[1] op[SET], node_type[3], "
                                   "card_nodeid[33|0x21] config_dev_type[17]"),
                      std::string("vx_mom_hmset(28, ") + CARD_KEY +
                          " stat=APP_CG_CHECK_PASS config_dev_type=17 card_nodeid=33}, [6 7 8])",
                      card_log(40, "leave")}}));
}

TEST_P(CheckResultLog, CardDenyIsWritten)
{
    EXPECT_EQ(app_cg_update_card_check_result(1, 3, 2, 2, 1, 3, 33, 17), 0);
    EXPECT_EQ(
        recording::take(),
        heard({{card_log(40, "update dev[1] slot[3] sslot[2], stat[2] op[SET], node_type[3], "
                             "card_nodeid[33|0x21] config_dev_type[17]"),
                std::string("vx_mom_hmset(28, ") + CARD_KEY + " config_dev_type=17 card_nodeid=33}, [6 7 8])",
                card_log(40, "leave")}}));
}

TEST_P(CheckResultLog, CardResultIsDeletedByItsKeyAlone)
{
    EXPECT_EQ(app_cg_update_card_check_result(1, 3, 2, 2, 0, 3, 33, 17), 0);
    EXPECT_EQ(recording::take(),
              heard({{card_log(40, "update dev[1] slot[3] sslot[2], stat[2] op[DEL], node_type[3], "
                                   "card_nodeid[33|0x21] config_dev_type[17]"),
                      std::string("vx_mom_del(28, ") + CARD_KEY + "})", card_log(40, "leave")}}));
}

TEST_P(CheckResultLog, CardWriteFails)
{
    recording::script("vx_mom_hmset", {-7});
    EXPECT_EQ(app_cg_update_card_check_result(1, 3, 2, 2, 1, 3, -2, 17), -7);
    EXPECT_EQ(
        recording::take(),
        heard({{card_log(40, "update dev[1] slot[3] sslot[2], stat[2] op[SET], node_type[3], "
                             "card_nodeid[-2|0xfffffffe] config_dev_type[17]"),
                std::string("vx_mom_hmset(28, ") + CARD_KEY + " config_dev_type=17 card_nodeid=-2}, [6 7 8])",
                card_log(100, "update dev[1] slot[3] sslot[2], stat[2] op[SET], "
                              "card_nodeid[-2|0xfffffffe] config_dev_type[17] rv -7")}}));
}

TEST_P(CheckResultLog, CardDeletionFails)
{
    recording::script("vx_mom_del", {-7});
    EXPECT_EQ(app_cg_update_card_check_result(1, 3, 2, 2, 0, 3, 33, 17), -7);
    EXPECT_EQ(recording::take(),
              heard({{card_log(40, "update dev[1] slot[3] sslot[2], stat[2] op[DEL], node_type[3], "
                                   "card_nodeid[33|0x21] config_dev_type[17]"),
                      std::string("vx_mom_del(28, ") + CARD_KEY + "})",
                      card_log(100, "del dev[1] slot[3] sslot[2] failed")}}));
}

TEST_P(CheckResultLog, CardTakesAbsentForSuccess)
{
    recording::script("vx_mom_hmset", {-5});
    recording::script("vx_mom_del", {-5});
    EXPECT_EQ(app_cg_update_card_check_result(1, 3, 2, 1, 1, 3, 33, 17), 0);
    EXPECT_EQ(app_cg_update_card_check_result(1, 3, 2, 1, 0, 3, 33, 17), 0);
    EXPECT_EQ(recording::take(), heard({card_result_set({}, 1), card_result_deleted({}, 1)}));
}

// ---- custom status, database 33 ----

TEST_P(CheckResultLog, DevStatusIsWrittenForADeniedCard)
{
    EXPECT_EQ(app_cg_update_dev_check_result(1, 3, 2, 2, 1), 0);
    EXPECT_EQ(recording::take(), heard({{dev_log(40, "update dev[1] slot[3] sslot[2], stat[2] op[SET]"),
                                         std::string("vx_mom_set(33, ") + DEV_KEY +
                                             " level=DM_CTM_APP_CG status=CANNOT_STARTUP})",
                                         dev_log(40, "leave")}}));
}

TEST_P(CheckResultLog, DevStatusIsDeletedInEveryOtherCase)
{
    const struct {
        int32_t stat;
        int32_t op;
        const char *said;
    } cases[] = {{1, 1, "stat[1] op[SET]"}, {0, 1, "stat[0] op[SET]"},   {3, 1, "stat[3] op[SET]"},
                 {2, 0, "stat[2] op[DEL]"}, {-2, 1, "stat[-2] op[SET]"}, {0, 0, "stat[0] op[DEL]"}};
    for (const auto &one : cases) {
        SCOPED_TRACE(one.said);
        EXPECT_EQ(app_cg_update_dev_check_result(1, 3, 2, one.stat, one.op), 0);
        EXPECT_EQ(recording::take(),
                  heard({{dev_log(40, std::string("update dev[1] slot[3] sslot[2], ") + one.said),
                          std::string("vx_mom_del(33, ") + DEV_KEY + "})", dev_log(40, "leave")}}));
    }
}

TEST_P(CheckResultLog, DevWriteFails)
{
    recording::script("vx_mom_set", {-7});
    EXPECT_EQ(app_cg_update_dev_check_result(1, 3, 2, 2, 5), -7);
    EXPECT_EQ(
        recording::take(),
        heard({{dev_log(40, "update dev[1] slot[3] sslot[2], stat[2] op[SET]"),
                std::string("vx_mom_set(33, ") + DEV_KEY + " level=DM_CTM_APP_CG status=CANNOT_STARTUP})",
                dev_log(100, "update dev[1] slot[3] sslot[2], stat[2] op[SET], rv -7")}}));
}

TEST_P(CheckResultLog, DevDeletionFails)
{
    recording::script("vx_mom_del", {-7});
    EXPECT_EQ(app_cg_update_dev_check_result(1, 3, 2, 1, 1), -7);
    EXPECT_EQ(recording::take(), heard({{dev_log(40, "update dev[1] slot[3] sslot[2], stat[1] op[SET]"),
                                         std::string("vx_mom_del(33, ") + DEV_KEY + "})",
                                         dev_log(100, "del dev[1] slot[3] sslot[2] failed")}}));
}

TEST_P(CheckResultLog, DevTakesAbsentForSuccess)
{
    recording::script("vx_mom_set", {-5});
    recording::script("vx_mom_del", {-5});
    EXPECT_EQ(app_cg_update_dev_check_result(1, 3, 2, 2, 1), 0);
    EXPECT_EQ(app_cg_update_dev_check_result(1, 3, 2, 2, 0), 0);
    EXPECT_EQ(recording::take(), heard({dev_status_set({}), dev_status_deleted({}, 2, 0)}));
}

// ---- the role gate ----

TEST_P(CheckResultLog, OnlyTheMasterWritesDatabases28And33)
{
    for (const int32_t role : {0, 2, 3, 4, -1}) {
        SCOPED_TRACE(role);
        become(role);
        const std::string refusal = "not master, no need to pro, role " + std::to_string(role);
        EXPECT_EQ(app_cg_update_card_check_result(1, 3, 2, 1, 1, 3, 33, 17), 0);
        EXPECT_EQ(app_cg_update_card_check_result(1, 3, 2, 2, 0, 3, 33, 17), 0);
        EXPECT_EQ(recording::take(),
                  heard({{card_log(40, "update dev[1] slot[3] sslot[2], stat[1] op[SET], node_type[3], "
                                       "card_nodeid[33|0x21] config_dev_type[17]"),
                          card_log(80, refusal),
                          card_log(40, "update dev[1] slot[3] sslot[2], stat[2] op[DEL], node_type[3], "
                                       "card_nodeid[33|0x21] config_dev_type[17]"),
                          card_log(80, refusal)}}));
        EXPECT_EQ(app_cg_update_dev_check_result(1, 3, 2, 2, 1), 0);
        EXPECT_EQ(app_cg_update_dev_check_result(1, 3, 2, 2, 0), 0);
        EXPECT_EQ(
            recording::take(),
            heard({{dev_log(40, "update dev[1] slot[3] sslot[2], stat[2] op[SET]"), dev_log(80, refusal),
                    dev_log(40, "update dev[1] slot[3] sslot[2], stat[2] op[DEL]"), dev_log(80, refusal)}}));
    }
}

TEST_F(CheckResult, TheResultByTipcNodeIsWrittenInEveryRole)
{
    app_cg_verbosity = 4;
    for (const int32_t role : {0, 1, 2, 3}) {
        SCOPED_TRACE(role);
        become(role);
        EXPECT_EQ(app_cg_update_mom_check_result(1, 3, 2, 1, 1, 3, 4097), 0);
        EXPECT_EQ(app_cg_update_mom_check_result(1, 3, 2, 1, 0, 3, 4097), 0);
        EXPECT_EQ(recording::take(), join({mom_result_set({}, 1), mom_result_deleted({}, 1)}));
    }
}

TEST_F(CheckResult, ACardAtTheZeroPositionHasAnEmptyKey)
{
    app_cg_update_mom_check_result(0, 0, 0, 1, 1, 0, 0);
    app_cg_update_card_check_result(0, 0, 0, 1, 0, 0, 0, 0);
    app_cg_update_dev_check_result(0, 0, 0, 0, 0);
    EXPECT_THAT(
        recording::take(),
        ElementsAre("vx_mom_set(1, p_libpub.app_cg_mom_deny_check_result{index={} stat=APP_CG_CHECK_PASS})",
                    "vx_mom_del(28, p_libpub.app_cg_card_deny_check_result{index={}})",
                    "vx_mom_del(33, p_dev.dm_set_card_custom_st{index={t_mod_name=\"APP_CG\" "
                    "t_reason=\"not compatible\"}})"));
}

} // namespace admission::check_result
