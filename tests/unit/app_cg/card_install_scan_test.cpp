// The card subscription is in place: all cards are replayed, then the backup records are reconciled.
//
// A scan that fails is repeated, once for the message and once for the value, and delivers its records each
// time; the tests count the scans in the journal.
#include <gmock/gmock.h>

#include "admission.h"
#include "app_cg/card_install.h"
#include "app_cg_dbg/logging.h"

namespace admission::card_install_scan
{

using testing::ElementsAre;

const char *const CARD_SCAN = "vx_mom_scan_sync(1, p_dev.card_info{index={}})";
const char *const BACKUP_SCAN = "vx_mom_scan_sync(1, p_libpub.app_cg_card_bak_info{index={}})";

std::string said(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_install_node_pmsg_f: " + line;
}

std::string backup_said(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_scan_bak_card_info: " + line;
}

// The two traces as the bytes that have to be in the log, in the national encoding of the device.
const std::string SCAN_BEGINS =
    said(40, "\xbf\xaa\xca\xbc\xb1\xe9\xc0\xfa\xb1\xb8\xb7\xdd\xca\xfd\xbe\xdd\xbf\xe2");
const std::string SCAN_ENDS =
    said(40, "\xb1\xe9\xc0\xfa\xb1\xb8\xb7\xdd\xca\xfd\xbe\xdd\xbf\xe2\xbd\xe1\xca\xf8");

int32_t subscribed()
{
    vx_mom_pmsg_t pmsg{};
    pmsg.cmd = VX_MOM_CMD_SUBSCRIBED;
    return app_cg_install_node_pmsg_f(nullptr, &pmsg);
}

class CardInstallScan : public AdmissionTest
{
};

class CardInstallScanLog : public EveryVerbosity
{
protected:
    const Journal begun_ = {said(40, "pmsg->cmd 29"), said(80, "subscribe ok")};

    // A failing scan: its results in turn, and the message about the one in between.
    Journal failing(const std::string &scan, int32_t reported) const
    {
        if (GetParam() == 0) {
            return {scan, scan};
        }
        return {scan, scan, said(100, "failed,rv " + std::to_string(reported)), scan};
    }
};

INSTANTIATE_TEST_SUITE_P(Verbosity, CardInstallScanLog, every_verbosity(), verbosity_name);

TEST_P(CardInstallScanLog, BothScansAreMade)
{
    EXPECT_EQ(subscribed(), 0);
    EXPECT_EQ(recording::take(), heard({begun_, {CARD_SCAN, SCAN_BEGINS, BACKUP_SCAN, SCAN_ENDS}}));
}

TEST_P(CardInstallScanLog, ScannedCardsAreHandledAsTheirCommandSays)
{
    // The store client of this project gives scanned records a command of their own, which is ignored here.
    recording::script_scan(record_of({}));
    EXPECT_EQ(subscribed(), 0);
    const std::string ignored = said(40, "pmsg->cmd 1");
    EXPECT_EQ(recording::take(),
              heard({begun_, {CARD_SCAN, ignored, ignored, SCAN_BEGINS, BACKUP_SCAN, SCAN_ENDS}}));
    EXPECT_EQ(node_count(), 0U);
}

TEST_P(CardInstallScanLog, CardsScannedAsWrittenAreTakenIn)
{
    Card second;
    second.slotid = 5;
    recording::script_scan(record_of({}), VX_MOM_CMD_SET);
    recording::script_scan(record_of(second), VX_MOM_CMD_HMSET);
    EXPECT_EQ(subscribed(), 0);
    const Journal lines = recording::take();
    EXPECT_THAT(heard_at(0, lines),
                ElementsAre(CARD_SCAN,
                            "vx_mom_hmset(1, p_libpub.app_cg_card_check_info{index={devid=1 slotid=3 "
                            "sslotid=2} type=17 node_type=DM_TYPE_LC card_nodeid=33}, [6 7 8])",
                            "vx_thread_add_timer(300.000000) = t1",
                            "vx_mom_hmset(1, p_libpub.app_cg_card_check_info{index={devid=1 slotid=5 "
                            "sslotid=2} type=17 node_type=DM_TYPE_LC card_nodeid=33}, [6 7 8])",
                            "vx_thread_add_timer(300.000000) = t2", BACKUP_SCAN));
    EXPECT_EQ(node_count(), 2U);
}

TEST_P(CardInstallScanLog, BackupsAreReconciledAfterTheCards)
{
    records::BackupRecord kept = records::backup(1, 3, 2);
    records::BackupRecord gone = records::backup(1, 4, 0);
    recording::script_scan(kept);
    recording::script_scan(gone);
    recording::script("vx_mom_exists_sync", {0, 1});
    EXPECT_EQ(subscribed(), 0);
    EXPECT_EQ(recording::take(),
              heard({begun_,
                     {CARD_SCAN, SCAN_BEGINS, BACKUP_SCAN, backup_said(40, "pmsg->cmd 1"),
                      backup_said(40, "key devid: 1, slotid: 3, sslotid: 2"),
                      "vx_mom_exists_sync(1, p_dev.card_info{index={devid=1 slotid=3 sslotid=2}})",
                      backup_said(80, "key devid: 1, slotid: 3, sslotid: 2"), backup_said(40, "pmsg->cmd 1"),
                      backup_said(40, "key devid: 1, slotid: 4, sslotid: 0"),
                      "vx_mom_exists_sync(1, p_dev.card_info{index={devid=1 slotid=4}})",
                      backup_said(40, "delet key devid: 1, slotid: 4, sslotid: 0"),
                      "vx_mom_del(1, p_libpub.app_cg_card_bak_info{index={devid=1 slotid=4}})", SCAN_ENDS}}));
}

TEST_P(CardInstallScanLog, AFailingCardScanIsRepeated)
{
    recording::script("vx_mom_scan_sync", {-7, -8, -9});
    EXPECT_EQ(subscribed(), GetParam() == 0 ? -8 : -9);
    EXPECT_EQ(recording::take(), heard({begun_, failing(CARD_SCAN, -8)}));
}

TEST_P(CardInstallScanLog, ACardScanThatSucceedsAtLastStillSkipsTheBackups)
{
    if (GetParam() == 0) {
        recording::script("vx_mom_scan_sync", {-7, 0});
    } else {
        recording::script("vx_mom_scan_sync", {-7, 3, 0});
    }
    EXPECT_EQ(subscribed(), 0);
    EXPECT_EQ(recording::take(), heard({begun_, failing(CARD_SCAN, 3)}));
}

TEST_P(CardInstallScanLog, AScanForTheMessageMaySucceed)
{
    recording::script("vx_mom_scan_sync", {-7, 0, -9});
    EXPECT_EQ(subscribed(), GetParam() == 0 ? 0 : -9);
    EXPECT_EQ(recording::take(), heard({begun_, failing(CARD_SCAN, 0)}));
}

TEST_P(CardInstallScanLog, AFailingBackupScanIsRepeated)
{
    recording::script("vx_mom_scan_sync", {0, -7, -8, -9});
    EXPECT_EQ(subscribed(), GetParam() == 0 ? -8 : -9);
    EXPECT_EQ(recording::take(), heard({begun_, {CARD_SCAN, SCAN_BEGINS}, failing(BACKUP_SCAN, -8)}));
}

TEST_F(CardInstallScan, ARepeatedScanDeliversItsCardsAgain)
{
    recording::script_scan(record_of({}), VX_MOM_CMD_SET);
    recording::script("vx_mom_scan_sync", {-7, -7, -7});
    EXPECT_EQ(subscribed(), -7);
    const std::string enter = said(100, " CARD_INSTALL enter, devid[1] slotid[3], sslotid[2], node_type[3] "
                                        "tipc_node_id[4097|0x1001] ");
    EXPECT_THAT(recording::take(),
                ElementsAre(CARD_SCAN, enter,
                            "vx_mom_hmset(1, p_libpub.app_cg_card_check_info{index={devid=1 slotid=3 "
                            "sslotid=2} type=17 node_type=DM_TYPE_LC card_nodeid=33}, [6 7 8])",
                            "vx_thread_add_timer(300.000000) = t1", CARD_SCAN, enter,
                            said(100, "failed,rv -7"), CARD_SCAN, enter));
    EXPECT_EQ(node_count(), 1U);
}

TEST_F(CardInstallScan, ARepeatedBackupScanDeliversItsRecordsAgain)
{
    app_cg_verbosity = 0;
    recording::script_scan(records::backup(1, 3, 2));
    recording::script("vx_mom_scan_sync", {0, -7, -7});
    recording::script("vx_mom_exists_sync", {1, 1});
    EXPECT_EQ(subscribed(), -7);
    const char *const probe = "vx_mom_exists_sync(1, p_dev.card_info{index={devid=1 slotid=3 sslotid=2}})";
    const char *const deletion =
        "vx_mom_del(1, p_libpub.app_cg_card_bak_info{index={devid=1 slotid=3 sslotid=2}})";
    EXPECT_THAT(recording::take(),
                ElementsAre(CARD_SCAN, BACKUP_SCAN, probe, deletion, BACKUP_SCAN, probe, deletion));
}

TEST_F(CardInstallScan, WhatHappensToOneRecordIsNotTheScansResult)
{
    recording::script_scan(records::backup(1, 3, 2));
    recording::script("vx_mom_exists_sync", {-1});
    EXPECT_EQ(subscribed(), 0);
}

TEST_F(CardInstallScan, EveryConfirmationReplaysEverything)
{
    EXPECT_EQ(subscribed(), 0);
    EXPECT_EQ(subscribed(), 0);
    EXPECT_THAT(recording::take(), ElementsAre(CARD_SCAN, BACKUP_SCAN, CARD_SCAN, BACKUP_SCAN));
}

TEST_F(CardInstallScan, CardsAreRememberedThroughAReplay)
{
    card_written({});
    passed_by({}, "m1");
    recording::script_scan(record_of({}), VX_MOM_CMD_SET);
    subscribed();
    EXPECT_EQ(node_count(), 1U);
    EXPECT_EQ(node_of({})->wait_obj.app_cg_wait_obj_bmp, 6U);
    EXPECT_THAT(recording::armed_timers(), ElementsAre("t1"));
}

} // namespace admission::card_install_scan
