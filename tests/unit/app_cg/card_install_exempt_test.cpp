// Cards that nobody has to check: no module is registered, or the card is a main board.
#include <gmock/gmock.h>

#include "admission.h"
#include "app_cg/card_install.h"
#include "app_cg_dbg/logging.h"

namespace admission::card_install_exempt
{

using testing::ElementsAre;
using testing::IsEmpty;

std::string said(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_install_node_pmsg_f: " + line;
}

std::string enter(const Card &card)
{
    return said(100, text(" CARD_INSTALL enter, devid[1] slotid[3], sslotid[2], node_type[%d] "
                          "tipc_node_id[4097|0x1001] ",
                          card.node_type));
}

std::string exempt(int32_t is_board, int32_t no_module)
{
    return said(80, text("cm[%d] or no module to deny[%d], no need to process", is_board, no_module));
}

const char *const ALREADY_PASSED =
    "log 80 app_cg.cpp app_cg_install_node_pmsg_f: devid[1] slot[3] sslot[2] is already passed.\r\n";

CardNode passed_node(const Card &card)
{
    CardNode node = fresh_node(card);
    node.stat = 1;
    node.reported = 1;
    return node;
}

class CardInstallExempt : public AdmissionTest
{
};

class CardInstallExemptLog : public EveryVerbosity
{
};

INSTANTIATE_TEST_SUITE_P(Verbosity, CardInstallExemptLog, every_verbosity(), verbosity_name);

TEST_P(CardInstallExemptLog, WithoutModulesANewCardIsPassed)
{
    register_modules({});
    EXPECT_EQ(card_written({}), 0);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 4"), enter({})},
                                        created({}),
                                        mom_result_removed({}, 1, 0),
                                        card_result_removed({}, 1, 0),
                                        {exempt(0, 1)},
                                        all_passed({})}));
    EXPECT_EQ(dump_text(*node_of({})), dump_text(passed_node({})));
    EXPECT_THAT(recording::armed_timers(), IsEmpty());
}

TEST_P(CardInstallExemptLog, WithoutModulesACardThatIsOffLineIsPassedToo)
{
    register_modules({});
    const Card card = Card{}.offline();
    EXPECT_EQ(card_written(card), 0);
    EXPECT_EQ(
        recording::take(),
        heard({{said(40, "pmsg->cmd 4"), enter(card)}, created(card), {exempt(0, 1)}, all_passed(card)}));
    EXPECT_EQ(dump_text(*node_of(card)), dump_text(passed_node(card)));
}

TEST_P(CardInstallExemptLog, AMainBoardIsPassed)
{
    const Card board = Card{}.board();
    EXPECT_EQ(card_written(board), 0);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 4"), enter(board)},
                                        created(board),
                                        mom_result_removed(board, 1, 0),
                                        card_result_removed(board, 1, 0),
                                        {exempt(1, 0)},
                                        all_passed(board)}));
    EXPECT_EQ(dump_text(*node_of(board)), dump_text(passed_node(board)));
    EXPECT_EQ(node_of(board)->wait_obj.app_cg_wait_obj_bmp, 7U);
}

TEST_P(CardInstallExemptLog, AMainBoardThatIsOffLineIsPassedToo)
{
    const Card board = Card{}.board().offline();
    EXPECT_EQ(card_written(board), 0);
    EXPECT_EQ(
        recording::take(),
        heard({{said(40, "pmsg->cmd 4"), enter(board)}, created(board), {exempt(1, 0)}, all_passed(board)}));
    EXPECT_EQ(node_of(board)->is_online, 0);
}

TEST_P(CardInstallExemptLog, BothReasonsAreShown)
{
    register_modules({});
    const Card board = Card{}.board().offline();
    card_written(board);
    EXPECT_EQ(
        recording::take(),
        heard({{said(40, "pmsg->cmd 4"), enter(board)}, created(board), {exempt(1, 1)}, all_passed(board)}));
}

TEST_P(CardInstallExemptLog, APassedCardIsOnlyRefreshed)
{
    register_modules({});
    card_written({});
    recording::take();
    Card changed;
    changed.config_dev_type = 18;
    EXPECT_EQ(card_written(changed), 0);
    EXPECT_EQ(recording::take(),
              heard({{said(40, "pmsg->cmd 4"), enter({})}, found({}), {exempt(0, 1), ALREADY_PASSED}}));
    EXPECT_EQ(dump_text(*node_of({})), dump_text(passed_node(changed)));
}

TEST_P(CardInstallExemptLog, APassedCardThatGoesOffLineKeepsItsResults)
{
    register_modules({});
    card_written({});
    recording::take();
    EXPECT_EQ(card_written(Card{}.offline()), 0);
    EXPECT_EQ(recording::take(),
              heard({{said(40, "pmsg->cmd 4"), enter({})}, found({}), {exempt(0, 1), ALREADY_PASSED}}));
    EXPECT_EQ(node_of({})->is_online, 0);
    EXPECT_EQ(node_of({})->stat, 1);
}

TEST_P(CardInstallExemptLog, APassedCardThatReturnsIsAlreadyPassed)
{
    register_modules({});
    card_written(Card{}.offline());
    recording::take();
    EXPECT_EQ(card_written({}), 0);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 4"), enter({})},
                                        found({}),
                                        mom_result_removed({}, 1, 1),
                                        card_result_removed({}, 1, 1),
                                        {exempt(0, 1), ALREADY_PASSED}}));
}

TEST_P(CardInstallExemptLog, ADeniedCardIsPassedOnceNobodyIsLeftToDenyIt)
{
    card_written({});
    denied_by({}, "m1", "no");
    register_modules({});
    recording::take();
    CardNode after = *node_of({});
    after.stat = 1;
    EXPECT_EQ(card_written({}), 0);
    EXPECT_EQ(recording::take(),
              heard({{said(40, "pmsg->cmd 4"), enter({})}, found({}), {exempt(0, 1)}, all_passed({})}));
    EXPECT_EQ(dump_text(*node_of({})), dump_text(after));
    EXPECT_STREQ(node_of({})->reason, "no");
}

TEST_P(CardInstallExemptLog, ADeniedCardThatReturnsLosesItsDenialFirst)
{
    card_written({});
    denied_by({}, "m1", "no");
    node_of({})->is_online = 0;
    register_modules({});
    recording::take();
    EXPECT_EQ(card_written({}), 0);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 4"), enter({})},
                                        found({}),
                                        mom_result_removed({}, 1, 2),
                                        card_result_removed({}, 1, 2),
                                        {exempt(0, 1)},
                                        all_passed({})}));
}

TEST_F(CardInstallExempt, TheCardIsMarkedOnlyAfterItsResults)
{
    register_modules({});
    Journal seen;
    look_inside("vx_mom_set", {}, &seen);
    look_inside("vx_mom_hmset", {}, &seen);
    look_inside("vx_mom_del", {}, &seen); // the custom status
    card_written({});
    EXPECT_THAT(seen, ElementsAre("vx_mom_set: stat 0 reported 0", "vx_mom_hmset: stat 0 reported 0",
                                  "vx_mom_del: stat 0 reported 0"));
    EXPECT_EQ(node_of({})->stat, 1);
    EXPECT_EQ(node_of({})->reported, 1);
}

TEST_F(CardInstallExempt, BothMarksAreNeededForAlreadyPassed)
{
    register_modules({});
    card_written({});
    const struct {
        int32_t stat;
        uint8_t reported;
    } marks[] = {{1, 0}, {0, 1}, {2, 1}, {0, 0}};
    for (const auto &mark : marks) {
        SCOPED_TRACE(testing::Message() << "status " << mark.stat << " reported " << int(mark.reported));
        node_of({})->stat = mark.stat;
        node_of({})->reported = mark.reported;
        recording::take();
        card_written({});
        EXPECT_EQ(recording::take(), heard_at(1, join({{enter({})}, all_passed({})})));
        EXPECT_EQ(node_of({})->stat, 1);
        EXPECT_EQ(node_of({})->reported, 1);
    }
}

TEST_F(CardInstallExempt, ACardUnderCheckKeepsItsTimerWhenItsModulesGo)
{
    card_written({});
    register_modules({});
    recording::take();
    card_written({});
    EXPECT_EQ(recording::take(), heard_at(1, join({{enter({})}, all_passed({})})));
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t1"));
    EXPECT_NE(node_of({})->timer, nullptr);
}

TEST_P(CardInstallExemptLog, OffTheMasterOnlyTheResultByTipcNodeIsWritten)
{
    become(2);
    const Card board = Card{}.board().offline();
    EXPECT_EQ(card_written(board), 0);
    EXPECT_EQ(recording::take(),
              heard({{said(40, "pmsg->cmd 4"), enter(board)},
                     created(board),
                     {exempt(1, 0)},
                     mom_result_set(board, 1),
                     refused(card_result_set(board, 1), "app_cg_update_card_check_result", 2),
                     refused(dev_status_deleted(board, 1, 1), "app_cg_update_dev_check_result", 2)}));
    EXPECT_EQ(node_of(board)->reported, 1);
}

TEST_F(CardInstallExempt, FailedWritesAreNotRemembered)
{
    app_cg_verbosity = 0;
    register_modules({});
    recording::script("vx_mom_set", {-7});
    recording::script("vx_mom_hmset", {-7});
    recording::script("vx_mom_del", {-7});
    EXPECT_EQ(card_written({}), 0);
    EXPECT_EQ(recording::take(), heard_at(0, all_passed({})));
    EXPECT_EQ(node_of({})->reported, 1);
    EXPECT_EQ(card_written({}), 0);
    EXPECT_THAT(recording::take(), IsEmpty());
}

TEST_F(CardInstallExempt, OnlyNodeTypeTwoIsAMainBoard)
{
    for (const int32_t node_type : {0, 1, 3, 4, 5, 6, 7, 8, -2}) {
        SCOPED_TRACE(node_type);
        Card card;
        card.node_type = node_type;
        card_written(card);
        EXPECT_EQ(node_of(card)->stat, 0);
        EXPECT_NE(node_of(card)->timer, nullptr);
        card_deleted(card);
    }
}

} // namespace admission::card_install_exempt
