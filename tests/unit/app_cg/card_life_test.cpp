// Lives of cards, told from outside: the daemon has subscribed, the store notifies, modules answer, time
// passes. The other tests of admission call one operation at a time; here the subscriptions do it.
//
// The stories run at verbosity 0, so that the journal holds what the device gets to see: records, timers and
// the system log.
#include <gmock/gmock.h>

#include "admission.h"
#include "app_cg/connections.h"
#include "app_cg_dbg/logging.h"

namespace admission::card_life
{

using namespace std::chrono_literals;

const Journal NOTHING;

class CardLife : public DaemonTest
{
protected:
    void SetUp() override
    {
        DaemonTest::SetUp();
        app_cg_verbosity = 0;
        modules_are({"m1", "m2", "m3"});
        daemon_subscribes();
        role_becomes(P_DEV__DM_ROLE_E__DM_ROLE_MASTER);
        recording::take();
    }

    // ---- what happens ----

    static void modules_are(const std::vector<std::string> &names)
    {
        for (const char *name : {"m1", "m2", "m3", "m4"}) {
            fake_fs::remove_module(name);
        }
        for (const std::string &name : names) {
            fake_fs::add_module(name);
        }
        fake_fs::list_order(names);
    }

    // The store connections are up, or up again.
    static void daemon_subscribes()
    {
        app_cg_db_validate();
        recording::deliver_subscribed("p_dev.dp_lib_grole");
        recording::deliver_subscribed("p_dev.card_info");
        recording::deliver_subscribed("p_libpub.app_cg_card_check_ack");
    }

    static void role_becomes(PDev__DmRoleE role)
    {
        ASSERT_TRUE(recording::deliver_written(records::role(role)));
    }

    static void plug(const Card &card) { ASSERT_TRUE(recording::deliver_written(record_of(card.online()))); }
    static void goes_offline(const Card &card)
    {
        ASSERT_TRUE(recording::deliver_written(record_of(card.offline()), VX_MOM_CMD_HMSET));
    }
    static void returns(const Card &card)
    {
        ASSERT_TRUE(recording::deliver_written(record_of(card.online()), VX_MOM_CMD_HMSET));
    }
    static void pull(const Card &card) { ASSERT_TRUE(recording::deliver_deleted(record_of(card))); }

    static void passes(const std::string &module, const Card &card)
    {
        records::AckRecord ack = records::ack(card.devid, card.slotid, card.sslotid, module);
        ASSERT_TRUE(recording::deliver_written(ack.pass()));
    }
    static void denies(const std::string &module, const Card &card, const std::string &reason)
    {
        records::AckRecord ack = records::ack(card.devid, card.slotid, card.sslotid, module);
        ASSERT_TRUE(recording::deliver_written(ack.deny(reason)));
    }

    // ---- what comes of it ----

    static Journal happened() { return recording::take(); }

    static Journal requested(const Card &card, const std::string &timer)
    {
        return heard_at(0, check_started(fresh_node(card), timer));
    }
    static Journal answer_taken(const Card &card, const std::string &module)
    {
        return heard_at(0, ack_deleted(card, module));
    }
    static Journal admitted(const Card &card) { return heard_at(0, all_passed(card)); }
    static Journal denied(const Card &card, const std::string &reason)
    {
        const std::string slot = text("Card in slot %d/%d will be ", card.devid, card.slotid);
        const std::string where =
            text("devid=%d slotid=%d sslotid=%d", card.devid, card.slotid, card.sslotid);
        return heard_at(
            0, join({{"syslog 4 APP_CG CG_MNG 1: " + slot + "disabled due to reason: " + reason + "."},
                     all_denied(card),
                     {"vx_mom_set_sync(33, s_dev.im_card_power_onoff{index={" + where +
                          " mod_name=\"cap\" cause=\"not compatible\"}})",
                      "syslog 4 APP_CG MIX_MNG 1: " + slot + "controlled to shutdown for not compatible."}}));
    }
    static Journal withdrawn(const Card &card, const std::string &timer)
    {
        return heard_at(0, check_ended(fresh_node(card), timer));
    }
    static Journal pass_removed(const Card &card)
    {
        return heard_at(0, join({mom_result_removed(card, 0, 1), card_result_removed(card, 0, 1)}));
    }
    static Journal status_removed(const Card &card) { return heard_at(0, dev_status_deleted(card, 0, 0)); }
    static Journal answers_removed(const Card &card) { return heard_at(0, acks_deleted(card)); }
    static Journal results_deleted(const Card &card)
    {
        return heard_at(0, join({mom_result_deleted(card, 2), card_result_deleted(card, 2),
                                 dev_status_deleted(card, 2, 0)}));
    }

    const Card card_{};
};

TEST_F(CardLife, ACardThatAllModulesPassIsAdmitted)
{
    plug(card_);
    EXPECT_EQ(happened(), requested(card_, "t1"));

    passes("m2", card_);
    EXPECT_EQ(happened(), answer_taken(card_, "m2"));
    recording::advance(299s);
    passes("m1", card_);
    EXPECT_EQ(happened(), answer_taken(card_, "m1"));

    passes("m3", card_);
    EXPECT_EQ(happened(), join({answer_taken(card_, "m3"), admitted(card_), withdrawn(card_, "t1")}));

    recording::advance(24h);
    EXPECT_EQ(happened(), NOTHING);
}

TEST_F(CardLife, ACardThatOneModuleDeniesIsPoweredOff)
{
    plug(card_);
    passes("m1", card_);
    happened();

    denies("m3", card_, "needs a newer frame");
    EXPECT_EQ(happened(), join({answer_taken(card_, "m3"), denied(card_, "needs a newer frame"),
                                withdrawn(card_, "t1")}));

    denies("m2", card_, "so do I say");
    EXPECT_EQ(happened(), answer_taken(card_, "m2"));
    recording::advance(24h);
    EXPECT_EQ(happened(), NOTHING);
}

TEST_F(CardLife, ACardThatNobodySpeaksUpAboutIsAdmittedAfterThreeHundredSeconds)
{
    recording::advance(17s);
    plug(card_);
    happened();

    recording::advance(300s - 1us);
    EXPECT_EQ(happened(), NOTHING);
    recording::advance(1us);
    EXPECT_EQ(recording::now(), 317s);
    const Journal expired = {
        "timer t1 fires",
        "log 120 app_cg.cpp app_cg_pro_timeout_card: devid[1] slotid[3] sslotid[2] wait_obj_bmp[7]"};
    EXPECT_EQ(happened(), join({expired, admitted(card_), withdrawn(card_, "")}));

    // Whoever wakes up now is too late with a PASS, not with a DENY.
    passes("m1", card_);
    EXPECT_EQ(happened(), answer_taken(card_, "m1"));
    denies("m2", card_, "late");
    EXPECT_EQ(happened(), join({answer_taken(card_, "m2"), denied(card_, "late"), withdrawn(card_, "")}));
}

TEST_F(CardLife, TheModuleThatStaysSilentIsNamedByItsBit)
{
    plug(card_);
    passes("m1", card_);
    passes("m3", card_);
    happened();
    recording::advance(300s);
    EXPECT_THAT(happened(), testing::Contains("log 120 app_cg.cpp app_cg_pro_timeout_card: devid[1] "
                                              "slotid[3] sslotid[2] wait_obj_bmp[2]"));
}

TEST_F(CardLife, ACardThatGoesOffLineLosesItsAdmissionAndIsCheckedAgain)
{
    plug(card_);
    for (const char *module : {"m1", "m2", "m3"}) {
        passes(module, card_);
    }
    happened();

    goes_offline(card_);
    EXPECT_EQ(happened(), join({pass_removed(card_), status_removed(card_), withdrawn(card_, ""),
                                answers_removed(card_)}));

    returns(card_);
    EXPECT_EQ(happened(), requested(card_, "t2"));

    // Nobody is outstanding any more: the modules were asked to answer once for this card's life.
    passes("m1", card_);
    EXPECT_EQ(happened(), join({answer_taken(card_, "m1"), admitted(card_), withdrawn(card_, "t2")}));
}

TEST_F(CardLife, ACardThatGoesOffLineUnderCheckIsCheckedForAnotherThreeHundredSeconds)
{
    plug(card_);
    recording::advance(299s);
    happened();
    goes_offline(card_);
    EXPECT_EQ(happened(), join({status_removed(card_), withdrawn(card_, "t1"), answers_removed(card_)}));

    recording::advance(10s);
    returns(card_);
    EXPECT_EQ(happened(), requested(card_, "t2"));
    recording::advance(300s - 1us);
    EXPECT_EQ(happened(), NOTHING);
    recording::advance(1us);
    EXPECT_THAT(happened(), testing::IsSupersetOf(admitted(card_)));
}

TEST_F(CardLife, ADeniedCardKeepsItsResultsUntilItIsDecidedAgain)
{
    plug(card_);
    denies("m1", card_, "no");
    happened();

    goes_offline(card_);
    EXPECT_EQ(happened(), join({status_removed(card_), withdrawn(card_, ""), answers_removed(card_)}));
    returns(card_);
    EXPECT_EQ(happened(), requested(card_, "t2"));
    for (const char *module : {"m1", "m2"}) {
        passes(module, card_);
    }
    happened();
    passes("m3", card_);
    EXPECT_EQ(happened(), join({answer_taken(card_, "m3"), admitted(card_), withdrawn(card_, "t2")}));
}

TEST_F(CardLife, ACardThatIsPulledLeavesNothingBehind)
{
    plug(card_);
    happened();
    pull(card_);
    EXPECT_EQ(happened(), join({results_deleted(card_), withdrawn(card_, "t1")}));
    EXPECT_EQ(node_count(), 0U);

    passes("m1", card_);
    EXPECT_EQ(happened(), answer_taken(card_, "m1"));
    recording::advance(24h);
    EXPECT_EQ(happened(), NOTHING);

    plug(card_);
    EXPECT_EQ(happened(), requested(card_, "t2"));
}

TEST_F(CardLife, AMainBoardIsAdmittedUnseen)
{
    const Card board = card_.board();
    plug(board);
    EXPECT_EQ(happened(), admitted(board));
    goes_offline(board);
    EXPECT_EQ(happened(), NOTHING);
    returns(board);
    EXPECT_EQ(happened(), NOTHING);
    pull(board);
    EXPECT_EQ(happened(), join({results_deleted(board), withdrawn(board, "")}));
}

TEST_F(CardLife, EachCardHasItsOwnCheck)
{
    Card other;
    other.slotid = 4;
    other.tipc_node = 5;
    plug(card_);
    plug(other);
    happened();
    denies("m1", card_, "no");
    EXPECT_EQ(happened(), join({answer_taken(card_, "m1"), denied(card_, "no"), withdrawn(card_, "t1")}));
    for (const char *module : {"m1", "m2"}) {
        passes(module, other);
    }
    happened();
    passes("m3", other);
    EXPECT_EQ(happened(), join({answer_taken(other, "m3"), admitted(other), withdrawn(other, "t2")}));
}

// ---- the device around the card ----

TEST_F(CardLife, ASlavePublishesByTipcNodeOnlyAndPowersOffAllTheSame)
{
    role_becomes(P_DEV__DM_ROLE_E__DM_ROLE_SLAVE);
    plug(card_);
    happened();
    denies("m1", card_, "no");
    const Journal all = join({answer_taken(card_, "m1"), denied(card_, "no"), withdrawn(card_, "t1")});
    Journal expected;
    for (const std::string &line : all) {
        if (line.rfind("vx_mom_hmset(28", 0) != 0 && line.rfind("vx_mom_set(33", 0) != 0) {
            expected.push_back(line);
        }
    }
    ASSERT_EQ(expected.size() + 2, all.size());
    EXPECT_EQ(happened(), expected);

    // Becoming the master publishes nothing of what was skipped.
    role_becomes(P_DEV__DM_ROLE_E__DM_ROLE_MASTER);
    EXPECT_EQ(happened(), NOTHING);
}

TEST_F(CardLife, WithoutModulesEveryCardIsAdmittedAtOnce)
{
    modules_are({});
    daemon_subscribes();
    happened();
    plug(card_);
    EXPECT_EQ(happened(), admitted(card_));
    goes_offline(card_);
    EXPECT_EQ(happened(), NOTHING);
}

TEST_F(CardLife, ACardWaitsForTheModulesOfItsArrival)
{
    plug(card_);
    modules_are({"m1", "m2", "m3", "m4"});
    daemon_subscribes();
    happened();
    denies("m4", card_, "the newcomer");
    EXPECT_EQ(happened(),
              join({answer_taken(card_, "m4"), denied(card_, "the newcomer"), withdrawn(card_, "t1")}));
    for (const char *module : {"m1", "m2", "m3"}) {
        passes(module, card_);
    }
    EXPECT_EQ(node_of(card_)->stat, 1);
}

TEST_F(CardLife, BackupsOfCardsThatExistAreCleanedUpWithTheSubscription)
{
    recording::script_scan(records::backup(1, 3, 2));
    recording::script("vx_mom_exists_sync", {1});
    daemon_subscribes();
    EXPECT_THAT(happened(),
                testing::Contains(
                    "vx_mom_del(1, p_libpub.app_cg_card_bak_info{index={devid=1 slotid=3 sslotid=2}})"));
}

} // namespace admission::card_life
