// Written card information: what is refused, and cards that come on line and have to be checked.
// Cards that need no check, go off line or are removed have files of their own.
#include <gmock/gmock.h>

#include "admission.h"
#include "app_cg/card_install.h"
#include "app_cg_dbg/logging.h"

namespace admission::card_install_write
{

using testing::Contains;
using testing::ElementsAre;

const char *const REQUEST = "vx_mom_hmset(1, p_libpub.app_cg_card_check_info{index={devid=1 slotid=3 "
                            "sslotid=2} type=17 node_type=DM_TYPE_LC card_nodeid=33}, [6 7 8])";
const char *const ENTER = "log 100 app_cg.cpp app_cg_install_node_pmsg_f:  CARD_INSTALL enter, devid[1] "
                          "slotid[3], sslotid[2], node_type[3] tipc_node_id[4097|0x1001] ";

std::string said(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_install_node_pmsg_f: " + line;
}

int32_t notify(int32_t cmd, vx_mom_result_t *result)
{
    vx_mom_pmsg_t pmsg{};
    pmsg.cmd = cmd;
    pmsg.result = result;
    return app_cg_install_node_pmsg_f(nullptr, &pmsg);
}

class CardInstallWrite : public AdmissionTest
{
};

class CardInstallWriteLog : public EveryVerbosity
{
};

INSTANTIATE_TEST_SUITE_P(Verbosity, CardInstallWriteLog, every_verbosity(), verbosity_name);

// ---- what is refused ----

TEST_P(CardInstallWriteLog, ANotificationIsNeeded)
{
    EXPECT_EQ(app_cg_install_node_pmsg_f(nullptr, nullptr), -4);
    EXPECT_EQ(recording::take(), heard({{said(100, "pmsg NULL pointer, addr error!\n")}}));
}

TEST_P(CardInstallWriteLog, OtherCommandsAreIgnored)
{
    for (const int32_t cmd : {0, 1, 2, 5, 7, 28, 30, -3}) {
        SCOPED_TRACE(cmd);
        const std::string trace = said(40, "pmsg->cmd " + std::to_string(cmd));
        EXPECT_EQ(card_written({}, cmd), 0);
        EXPECT_EQ(recording::take(), heard({{trace, trace}}));
    }
    EXPECT_EQ(node_count(), 0U);
}

TEST_P(CardInstallWriteLog, AResultIsNeeded)
{
    for (const int32_t cmd : {4, 6}) {
        EXPECT_EQ(notify(cmd, nullptr), -21);
        EXPECT_EQ(recording::take(),
                  heard({{said(40, "pmsg->cmd " + std::to_string(cmd)), said(100, "result NULL")}}));
    }
}

TEST_P(CardInstallWriteLog, AnErrorOfTheStoreIsRefused)
{
    for (const int32_t code : {5, -1}) {
        records::CardRecord record = record_of({});
        vx_mom_result_t result{code, &record.record()->base};
        EXPECT_EQ(notify(4, &result), -21);
        EXPECT_EQ(recording::take(),
                  heard({{said(40, "pmsg->cmd 4"), said(100, "result error_code " + std::to_string(code))}}));
    }
    EXPECT_EQ(node_count(), 0U);
}

TEST_P(CardInstallWriteLog, ARecordIsNeeded)
{
    vx_mom_result_t result{0, nullptr};
    EXPECT_EQ(notify(6, &result), -4);
    EXPECT_EQ(recording::take(),
              heard({{said(40, "pmsg->cmd 6"), said(100, "card_info NULL pointer, addr error!\n")}}));
}

TEST_P(CardInstallWriteLog, AnIndexIsNeeded)
{
    records::CardRecord record = record_of({});
    vx_mom_result_t result{0, &record.without_index().record()->base};
    EXPECT_EQ(notify(4, &result), -4);
    EXPECT_EQ(recording::take(),
              heard({{said(40, "pmsg->cmd 4"), said(100, "card_info->index NULL pointer, addr error!\n")}}));
    EXPECT_EQ(node_count(), 0U);
}

TEST_P(CardInstallWriteLog, AStaticPartIsNeeded)
{
    records::CardRecord record = record_of({});
    vx_mom_result_t result{0, &record.without_static_part().record()->base};
    EXPECT_EQ(notify(4, &result), -4);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 4"),
                                         said(100, "card_info->static_info NULL pointer, addr error!\n")}}));
    EXPECT_EQ(node_count(), 0U);
}

TEST_F(CardInstallWrite, TheFirstMissingPartIsNamed)
{
    records::CardRecord record = record_of({});
    vx_mom_result_t result{0, &record.without_index().without_static_part().record()->base};
    EXPECT_EQ(notify(4, &result), -4);
    EXPECT_THAT(recording::take(), ElementsAre(said(100, "card_info->index NULL pointer, addr error!\n")));
}

TEST_P(CardInstallWriteLog, WithoutMemoryACardIsNotTakenIn)
{
    fake_fs::fail_next_malloc();
    EXPECT_EQ(card_written({}), -11);
    CardNode templ{};
    templ.devid = 1;
    templ.slotid = 3;
    templ.sslotid = 2;
    EXPECT_EQ(recording::take(),
              heard({{said(40, "pmsg->cmd 4"), ENTER, notice("app_cg_node_init", "enter")},
                     dumped(templ),
                     {error("app_cg_node_init", "new_node malloc failed"),
                      said(100, "app_cg_node_init failed, devid 1, slotid 3, sslotid 2")}}));
    EXPECT_EQ(node_count(), 0U);
}

// ---- coming on line ----

TEST_P(CardInstallWriteLog, ANewCardOnLineIsChecked)
{
    EXPECT_EQ(card_written({}), 0);
    CardNode node = fresh_node({});
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 4"), ENTER},
                                        created({}),
                                        mom_result_removed({}, 1, 0),
                                        card_result_removed({}, 1, 0),
                                        check_started(node, "t1")}));
    ASSERT_NE(node_of({}), nullptr);
    node.timer = node_of({})->timer;
    EXPECT_NE(node.timer, nullptr);
    EXPECT_EQ(dump_text(*node_of({})), dump_text(node));
    EXPECT_EQ(node_of({})->wait_obj.app_cg_wait_obj_bmp, 7U);
    EXPECT_EQ(recording::timer_argument("t1"), node_of({}));
}

TEST_F(CardInstallWrite, BothWaysOfWritingAreTheSame)
{
    EXPECT_EQ(card_written({}, 6), 0);
    EXPECT_THAT(recording::take(), ElementsAre(ENTER, REQUEST, "vx_thread_add_timer(300.000000) = t1"));
    EXPECT_EQ(node_count(), 1U);
}

TEST_P(CardInstallWriteLog, TheSameAgainPublishesNothing)
{
    card_written({});
    recording::take();
    const std::string before = dump_text(*node_of({}));
    EXPECT_EQ(card_written({}), 0);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 4"), ENTER}, found({})}));
    EXPECT_EQ(dump_text(*node_of({})), before);
    EXPECT_EQ(node_count(), 1U);
}

TEST_P(CardInstallWriteLog, ACardOnLineIsOnlyRefreshed)
{
    card_written({});
    recording::take();
    Card changed;
    changed.config_dev_type = 18;
    changed.node_type = 4;
    changed.card_nodeid = 99;
    changed.tipc_node = -2;
    CardNode node = fresh_node(changed);
    node.timer = node_of({})->timer;
    EXPECT_EQ(card_written(changed), 0);
    EXPECT_EQ(recording::take(),
              heard({{said(40, "pmsg->cmd 4"),
                      said(100, " CARD_INSTALL enter, devid[1] slotid[3], sslotid[2], node_type[4] "
                                "tipc_node_id[-2|0xfffffffe] ")},
                     found({})}));
    EXPECT_EQ(dump_text(*node_of({})), dump_text(node));
}

TEST_P(CardInstallWriteLog, ACardThatReturnsIsCheckedAgain)
{
    card_written(Card{}.offline());
    recording::take();
    EXPECT_EQ(card_written({}), 0);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 4"), ENTER},
                                        found({}),
                                        mom_result_removed({}, 1, 0),
                                        card_result_removed({}, 1, 0),
                                        check_started(fresh_node({}), "t1")}));
    EXPECT_EQ(node_of({})->is_online, 1);
}

TEST_P(CardInstallWriteLog, ADenialIsWithdrawnWhenTheCardReturns)
{
    card_written({});
    // As when the card went off line while this daemon was not told in time.
    CardNode *node = node_of({});
    node->stat = 2;
    node->reported = 1;
    node->is_online = 0;
    CardNode back = *node;
    back.is_online = 1;
    recording::take();
    EXPECT_EQ(card_written({}), 0);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 4"), ENTER},
                                        found({}),
                                        mom_result_removed({}, 1, 2),
                                        card_result_removed({}, 1, 2),
                                        check_started(back, "t2")}));
    EXPECT_EQ(node->stat, 2) << "the status is not touched by coming on line";
}

TEST_F(CardInstallWrite, ARemovalThatFailsDoesNotStopTheCheck)
{
    card_written({});
    CardNode *node = node_of({});
    node->stat = 2;
    node->is_online = 0;
    recording::take();
    recording::script("vx_mom_del", {-7, -7});
    recording::script("vx_mom_hmset", {-7});
    EXPECT_EQ(card_written({}), 0);
    EXPECT_THAT(
        recording::take(),
        ElementsAre(
            ENTER, "vx_mom_del(1, p_libpub.app_cg_mom_deny_check_result{index={card_tipc_nodeid=4097}})",
            error("app_cg_del_mom_check_result",
                  "del mom check result dev[1] slot[3] sslot[2] card_tipc_nodeid[4097] failed"),
            "vx_mom_del(28, p_libpub.app_cg_card_deny_check_result{index={devid=1 slotid=3 sslotid=2}})",
            error("app_cg_del_card_check_result", "del card check result dev[1] slot[3] sslot[2] failed"),
            REQUEST, error("app_cg_noti_start_deny_info", "hmset failed, devid 1, slotid 3 sslotid 2"),
            "vx_thread_add_timer(300.000000) = t2"));
}

TEST_F(CardInstallWrite, ARefusedTimerDoesNotStopTheCheck)
{
    recording::script("vx_thread_add_timer_timeval", {-1});
    EXPECT_EQ(card_written({}), 0);
    EXPECT_EQ(node_of({})->timer, nullptr);
    EXPECT_EQ(passed_by({}, "m1"), 0);
    EXPECT_EQ(node_of({})->wait_obj.app_cg_wait_obj_bmp, 6U);
}

TEST_F(CardInstallWrite, EveryOnlineFlagButZeroIsOnline)
{
    records::CardRecord record = record_of({});
    record.record()->is_online = 4;
    vx_mom_result_t result{0, &record.record()->base};
    EXPECT_EQ(notify(4, &result), 0);
    EXPECT_EQ(node_of({})->is_online, 1);
}

TEST_F(CardInstallWrite, TheRoleDoesNotMatter)
{
    for (const int32_t role : {0, 2, 3}) {
        become(role);
        EXPECT_EQ(card_written({}), 0);
        EXPECT_THAT(recording::take(), Contains(REQUEST));
        card_deleted({});
        recording::take();
    }
}

TEST_F(CardInstallWrite, OnlyTheNamedPartsOfTheRecordCount)
{
    records::CardRecord record = record_of({});
    char name[] = "a name";
    record.record()->name = name;
    record.record()->index->t_mod = 9;
    record.record()->is_mboard = 1;
    record.record()->is_pre_insl = 1;
    record.record()->user_slot = 44;
    record.record()->sw_status = 5;
    vx_mom_result_t result{0, &record.record()->base};
    EXPECT_EQ(notify(4, &result), 0);
    EXPECT_THAT(recording::take(), ElementsAre(ENTER, REQUEST, "vx_thread_add_timer(300.000000) = t1"));
}

TEST_F(CardInstallWrite, EachPositionIsACardOfItsOwn)
{
    Card sub;
    sub.sslotid = 0;
    card_written({});
    card_written(sub);
    EXPECT_THAT(table(), ElementsAre("1/3/0", "1/3/2"));
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t1", "t2"));
}

TEST_F(CardInstallWrite, NewCardsStandInFrontOfThoseThatAreNamed)
{
    Card card;
    card.sslotid = 1;
    for (const int32_t nodeid : {9, 0, -1, 5}) {
        card.card_nodeid = nodeid;
        ++card.slotid;
        card_written(card);
    }
    EXPECT_THAT(table(), ElementsAre("1/5/1", "1/6/1", "1/7/1", "1/4/1"));
}

} // namespace admission::card_install_write
