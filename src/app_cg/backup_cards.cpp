// Backup records of cards are kept by others for cards whose information is gone. One whose card information
// exists is stale, and goes.

#include "app_cg/backup_cards.h"

#include "app_cg/app_cg.h"
#include "app_cg_dbg/logging.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"

int32_t app_cg_scan_bak_card_info(void * /*arg*/, vx_mom_pmsg_t *pmsg)
{
    if (pmsg == nullptr) {
        APP_CG_ERROR("pmsg NULL pointer, addr error!\n");
        return APP_CG_ERR_NULL;
    }
    APP_CG_INFO("pmsg->cmd %d", pmsg->cmd);
    if (pmsg->cmd != VX_MOM_CMD_SCANNED) {
        APP_CG_INFO("pmsg->cmd %d", pmsg->cmd);
        return 0;
    }
    const auto *bak_info = reinterpret_cast<const PLibpub__AppCgCardBakInfo *>(pmsg->record);
    if (bak_info == nullptr) {
        APP_CG_ERROR("bak_info NULL pointer, addr error!\n");
        return APP_CG_ERR_NULL;
    }
    if (bak_info->index == nullptr) {
        APP_CG_ERROR("bak_info->index NULL pointer, addr error!\n");
        return APP_CG_ERR_NULL;
    }
    PDev__CardInfoIndex index = P_DEV__CARD_INFO_INDEX__INIT;
    index.devid = bak_info->index->devid;
    index.slotid = bak_info->index->slotid;
    index.sslotid = bak_info->index->sslotid;
    APP_CG_INFO("key devid: %d, slotid: %d, sslotid: %d", index.devid, index.slotid, index.sslotid);

    PDev__CardInfo probe = P_DEV__CARD_INFO__INIT;
    probe.index = &index;
    int32_t rv = vx_mom_exists_sync(g_app_cg_global.global, APP_CG_DB_HOST, &probe.base);
    if (rv != 0 && rv != 1) {
        APP_CG_ERROR("key devid: %d, slotid: %d, sslotid: %d vx_mom_exists_sync rv %d", index.devid,
                     index.slotid, index.sslotid, rv);
        return APP_CG_ERR_RESOURCE;
    }
    if (rv == 0) {
        APP_CG_WARN("key devid: %d, slotid: %d, sslotid: %d", index.devid, index.slotid, index.sslotid);
        return 0;
    }

    APP_CG_INFO("delet key devid: %d, slotid: %d, sslotid: %d", index.devid, index.slotid, index.sslotid);
    PLibpub__AppCgCardBakInfo stale = P_LIBPUB__APP_CG_CARD_BAK_INFO__INIT;
    stale.index = &index;
    rv = vx_mom_del(g_app_cg_global.global, APP_CG_DB_HOST, &stale.base, nullptr, nullptr);
    if (rv == 0 || rv == APP_CG_STORE_ABSENT) {
        return 0;
    }
    // A trace, not an error: the record is only stale, and the next pass deletes it.
    APP_CG_INFO("delete key failed devid: %d, slotid: %d, sslotid: %d", index.devid, index.slotid,
                index.sslotid);
    return rv;
}
