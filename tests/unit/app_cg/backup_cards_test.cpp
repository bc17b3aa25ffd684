// Backup records: deleted when their card exists, kept and reported when it does not.
#include "app_cg/backup_cards.h"

#include <gmock/gmock.h>

#include "admission.h"
#include "app_cg_dbg/logging.h"

namespace admission::backup_cards
{

using testing::ElementsAre;

const char *const PROBE = "vx_mom_exists_sync(1, p_dev.card_info{index={devid=1 slotid=3 sslotid=2}})";
const char *const DELETION =
    "vx_mom_del(1, p_libpub.app_cg_card_bak_info{index={devid=1 slotid=3 sslotid=2}})";
const char *const KEY = "key devid: 1, slotid: 3, sslotid: 2";

std::string said(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_scan_bak_card_info: " + line;
}

// A backup record with more in it than its position.
records::BackupRecord backup()
{
    records::BackupRecord record = records::backup(1, 3, 2);
    record.record()->index->t_mod = 9;
    record.record()->config_dev_type = 17;
    record.record()->card_nodeid = 33;
    record.record()->node_type = 3;
    return record;
}

int32_t scanned(const ProtobufCMessage *record, int32_t cmd = VX_MOM_CMD_SCANNED)
{
    vx_mom_pmsg_t pmsg{};
    pmsg.cmd = cmd;
    pmsg.record = const_cast<ProtobufCMessage *>(record);
    return app_cg_scan_bak_card_info(nullptr, &pmsg);
}

class BackupCards : public AdmissionTest
{
};

class BackupCardsLog : public EveryVerbosity
{
};

INSTANTIATE_TEST_SUITE_P(Verbosity, BackupCardsLog, every_verbosity(), verbosity_name);

TEST_P(BackupCardsLog, TheBackupOfAnExistingCardIsDeleted)
{
    records::BackupRecord record = backup();
    recording::script("vx_mom_exists_sync", {1});
    EXPECT_EQ(scanned(record), 0);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 1"), said(40, KEY), PROBE,
                                         said(40, "delet key devid: 1, slotid: 3, sslotid: 2"), DELETION}}));
}

TEST_P(BackupCardsLog, TheBackupOfAnAbsentCardIsKept)
{
    records::BackupRecord record = backup();
    EXPECT_EQ(scanned(record), 0);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 1"), said(40, KEY), PROBE, said(80, KEY)}}));
}

TEST_P(BackupCardsLog, AFailedProbeKeepsTheBackup)
{
    for (const int32_t answer : {2, -1, -5, 256}) {
        SCOPED_TRACE(answer);
        records::BackupRecord record = backup();
        recording::script("vx_mom_exists_sync", {answer});
        EXPECT_EQ(scanned(record), -11);
        // The message has room for a number that nobody defined; ours is the probe's answer.
        EXPECT_EQ(
            recording::take(),
            heard({{said(40, "pmsg->cmd 1"), said(40, KEY), PROBE,
                    said(100, std::string(KEY) + " vx_mom_exists_sync rv " + std::to_string(answer))}}));
    }
}

TEST_P(BackupCardsLog, ABackupThatIsGoneCountsAsDeleted)
{
    records::BackupRecord record = backup();
    recording::script("vx_mom_exists_sync", {1});
    recording::script("vx_mom_del", {-5});
    EXPECT_EQ(scanned(record), 0);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 1"), said(40, KEY), PROBE,
                                         said(40, "delet key devid: 1, slotid: 3, sslotid: 2"), DELETION}}));
}

TEST_P(BackupCardsLog, AFailedDeletionIsOnlyTraced)
{
    records::BackupRecord record = backup();
    recording::script("vx_mom_exists_sync", {1});
    recording::script("vx_mom_del", {-7});
    EXPECT_EQ(scanned(record), -7);
    EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd 1"), said(40, KEY), PROBE,
                                         said(40, "delet key devid: 1, slotid: 3, sslotid: 2"), DELETION,
                                         said(40, "delete key failed devid: 1, slotid: 3, sslotid: 2")}}));
}

TEST_P(BackupCardsLog, OnlyScannedRecordsAreActedOn)
{
    records::BackupRecord record = backup();
    for (const int32_t cmd : {0, 2, 3, 4, 5, 6, 29, -1}) {
        SCOPED_TRACE(cmd);
        const std::string trace = said(40, "pmsg->cmd " + std::to_string(cmd));
        EXPECT_EQ(scanned(record, cmd), 0);
        EXPECT_EQ(recording::take(), heard({{trace, trace}}));
    }
}

TEST_P(BackupCardsLog, ANotificationIsNeeded)
{
    EXPECT_EQ(app_cg_scan_bak_card_info(nullptr, nullptr), -4);
    EXPECT_EQ(recording::take(), heard({{said(100, "pmsg NULL pointer, addr error!\n")}}));
}

TEST_P(BackupCardsLog, ARecordIsNeeded)
{
    EXPECT_EQ(scanned(nullptr), -4);
    EXPECT_EQ(recording::take(),
              heard({{said(40, "pmsg->cmd 1"), said(100, "bak_info NULL pointer, addr error!\n")}}));
}

TEST_P(BackupCardsLog, AnIndexIsNeeded)
{
    records::BackupRecord record = backup();
    EXPECT_EQ(scanned(record.without_index()), -4);
    EXPECT_EQ(recording::take(),
              heard({{said(40, "pmsg->cmd 1"), said(100, "bak_info->index NULL pointer, addr error!\n")}}));
}

TEST_F(BackupCards, TheRoleAndTheTableDoNotMatter)
{
    become(2);
    ASSERT_EQ(node_count(), 0U);
    records::BackupRecord record = backup();
    recording::script("vx_mom_exists_sync", {1});
    EXPECT_EQ(scanned(record), 0);
    EXPECT_THAT(recording::take(), ElementsAre(PROBE, DELETION));
}

TEST_F(BackupCards, TheZeroPositionIsACardLikeAnother)
{
    records::BackupRecord record = records::backup(0, 0, 0);
    recording::script("vx_mom_exists_sync", {1});
    EXPECT_EQ(scanned(record), 0);
    EXPECT_THAT(recording::take(), ElementsAre("vx_mom_exists_sync(1, p_dev.card_info{index={}})",
                                               "vx_mom_del(1, p_libpub.app_cg_card_bak_info{index={}})"));
}

} // namespace admission::backup_cards
