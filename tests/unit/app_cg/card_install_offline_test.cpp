// Cards that go off line: results, request, timer and acknowledgements go with them, the node stays.
#include <gmock/gmock.h>

#include "admission.h"
#include "app_cg/card_install.h"
#include "app_cg_dbg/logging.h"

namespace admission::card_install_offline
{

using testing::ElementsAre;
using testing::IsEmpty;

std::string said(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_install_node_pmsg_f: " + line;
}

const Journal ENTER = {said(40, "pmsg->cmd 4"),
                       said(100, " CARD_INSTALL enter, devid[1] slotid[3], sslotid[2], node_type[3] "
                                 "tipc_node_id[4097|0x1001] ")};
const Journal NOT_ONLINE = {said(60, "devid[1] slotid[3], sslotid[2], node_type[3] "
                                     "tipc_node_id[4097|0x1001] not online ")};

// The clean-up for a node in this state, with the status that it had before.
Journal cleaned_up(CardNode node, int32_t stat, const std::string &timer)
{
    node.stat = 0;
    node.reported = 0;
    node.is_online = 0;
    return join({NOT_ONLINE, mom_result_removed({}, 0, stat), card_result_removed({}, 0, stat),
                 dev_status_deleted({}, 0, 0), check_ended(node, timer), acks_deleted({})});
}

class CardInstallOffline : public AdmissionTest
{
};

class CardInstallOfflineLog : public EveryVerbosity
{
};

INSTANTIATE_TEST_SUITE_P(Verbosity, CardInstallOfflineLog, every_verbosity(), verbosity_name);

TEST_P(CardInstallOfflineLog, ANewCardThatIsOffLineIsTakenInAndCleanedUp)
{
    EXPECT_EQ(card_written(Card{}.offline()), 0);
    const CardNode node = fresh_node(Card{}.offline());
    EXPECT_EQ(recording::take(), heard({ENTER, created({}), cleaned_up(node, 0, "")}));
    EXPECT_EQ(dump_text(*node_of({})), dump_text(node));
    EXPECT_THAT(recording::armed_timers(), IsEmpty());
}

TEST_P(CardInstallOfflineLog, ACheckIsWithdrawn)
{
    card_written({});
    passed_by({}, "m2");
    recording::take();
    CardNode node = *node_of({});
    EXPECT_EQ(card_written(Card{}.offline()), 0);
    EXPECT_EQ(recording::take(), heard({ENTER, found({}), cleaned_up(node, 0, "t1")}));
    node.is_online = 0;
    node.timer = nullptr;
    EXPECT_EQ(dump_text(*node_of({})), dump_text(node));
    EXPECT_EQ(node_of({})->wait_obj.app_cg_wait_obj_bmp, 5U) << "the modules outstanding are not refilled";
    EXPECT_THAT(recording::armed_timers(), IsEmpty());
}

TEST_P(CardInstallOfflineLog, APassIsRemoved)
{
    card_written({});
    for (const char *module : {"m1", "m2", "m3"}) {
        passed_by({}, module);
    }
    recording::take();
    const CardNode node = *node_of({});
    EXPECT_EQ(card_written(Card{}.offline()), 0);
    EXPECT_EQ(recording::take(), heard({ENTER, found({}), cleaned_up(node, 1, "")}));
    EXPECT_EQ(node_of({})->stat, 0);
    EXPECT_EQ(node_of({})->reported, 0);
}

TEST_P(CardInstallOfflineLog, OfADenialOnlyTheCustomStatusIsRemoved)
{
    card_written({});
    denied_by({}, "m1", "no");
    recording::take();
    const CardNode node = *node_of({});
    EXPECT_EQ(card_written(Card{}.offline()), 0);
    EXPECT_EQ(recording::take(), heard({ENTER, found({}), cleaned_up(node, 2, "")}));
    EXPECT_EQ(node_of({})->stat, 0);
    EXPECT_EQ(node_of({})->reported, 0);
    EXPECT_STREQ(node_of({})->reason, "no") << "the reason of the last denial is kept";
}

TEST_P(CardInstallOfflineLog, ACardThatStaysOffLineIsCleanedUpEachTime)
{
    card_written(Card{}.offline());
    recording::take();
    const CardNode node = *node_of({});
    EXPECT_EQ(card_written(Card{}.offline(), 4), 0);
    EXPECT_EQ(recording::take(), heard({ENTER, found({}), cleaned_up(node, 0, "")}));
}

TEST_P(CardInstallOfflineLog, OffTheMasterTheCustomStatusIsNotTouched)
{
    become(0);
    CardNode node = fresh_node(Card{}.offline());
    EXPECT_EQ(card_written(Card{}.offline()), 0);
    EXPECT_EQ(
        recording::take(),
        heard({ENTER, created({}), NOT_ONLINE, mom_result_removed({}, 0, 0), card_result_removed({}, 0, 0),
               refused(dev_status_deleted({}, 0, 0), "app_cg_update_dev_check_result", 0),
               check_ended(node, ""), acks_deleted({})}));
}

TEST_F(CardInstallOffline, FailedStoreCallsDoNotStopTheCleanUp)
{
    card_written({});
    node_of({})->stat = 1;
    node_of({})->reported = 1;
    const CardNode node = *node_of({});
    app_cg_verbosity = 0;
    recording::take();
    recording::script_always("vx_mom_del", -7);
    recording::script_always("vx_mom_pdel", -7);
    EXPECT_EQ(card_written(Card{}.offline()), 0);
    EXPECT_EQ(recording::take(), heard_at(0, cleaned_up(node, 1, "t1")));
    EXPECT_EQ(node_of({})->stat, 0);
    EXPECT_EQ(node_of({})->timer, nullptr);
}

TEST_F(CardInstallOffline, TheNewDescriptionIsUsedForTheCleanUp)
{
    card_written({});
    for (const char *module : {"m1", "m2", "m3"}) {
        passed_by({}, module);
    }
    recording::take();
    Card changed = Card{}.offline();
    changed.tipc_node = 5;
    EXPECT_EQ(card_written(changed), 0);
    EXPECT_EQ(recording::take()[1],
              "vx_mom_del(1, p_libpub.app_cg_mom_deny_check_result{index={card_tipc_nodeid=5}})");
}

// ---- and back ----

TEST_F(CardInstallOffline, ACardThatReturnsStartsWithWhatTheFirstCheckLeft)
{
    card_written({});
    passed_by({}, "m1");
    passed_by({}, "m2");
    card_written(Card{}.offline());
    recording::take();
    card_written({});
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t2"));
    EXPECT_EQ(node_of({})->wait_obj.app_cg_wait_obj_bmp, 4U);
    passed_by({}, "m3");
    EXPECT_EQ(node_of({})->stat, 1);
}

TEST_F(CardInstallOffline, AfterACompleteCheckTheFirstPassIsEnough)
{
    card_written({});
    for (const char *module : {"m1", "m2", "m3"}) {
        passed_by({}, module);
    }
    card_written(Card{}.offline());
    card_written({});
    EXPECT_EQ(node_of({})->stat, 0);
    EXPECT_EQ(node_of({})->wait_obj.app_cg_wait_obj_bmp, 0U);
    recording::take();
    passed_by({}, "m2");
    EXPECT_EQ(node_of({})->stat, 1);
    EXPECT_THAT(recording::take(), testing::IsSupersetOf(heard_at(0, all_passed({}))));
}

TEST_F(CardInstallOffline, ADeniedCardThatReturnsCanBeDeniedAgain)
{
    card_written({});
    denied_by({}, "m1", "first");
    card_written(Card{}.offline());
    card_written({});
    recording::take();
    denied_by({}, "m2", "second");
    EXPECT_THAT(recording::take(),
                testing::Contains(
                    "syslog 4 APP_CG CG_MNG 1: Card in slot 1/3 will be disabled due to reason: second."));
    EXPECT_STREQ(node_of({})->reason, "second");
}

} // namespace admission::card_install_offline
