// Every card enters the daemon here. One callback, told of a card's information being written or deleted and
// of the subscription being in place, keeps the card's node in step and decides whether the card is to be
// checked, is exempt, or has gone.
//
// The callback is split over several functions, but its log records are one callback's.
#define APP_CG_LOG_FUNCTION "app_cg_install_node_pmsg_f"

#include "app_cg/card_install.h"

#include "app_cg/app_cg.h"
#include "app_cg/backup_cards.h"
#include "app_cg/card_nodes.h"
#include "app_cg/check_request.h"
#include "app_cg/check_result.h"
#include "app_cg/store_result.h"
#include "app_cg_dbg/logging.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"

namespace
{

// What the removers are asked for: a card that goes loses its PASS, a card that comes loses its DENY.
constexpr int32_t REMOVE_PASS = 0;
constexpr int32_t REMOVE_DENY = 1;

// Traces of the scan of the backup database, its begin ("开始遍历备份数据库") and end ("遍历备份数据库结束").
// The device's log is GB2312 throughout, so these bytes are, whatever this file's encoding is.
constexpr char BACKUP_SCAN_BEGINS[] =
    "\xbf\xaa\xca\xbc\xb1\xe9\xc0\xfa\xb1\xb8\xb7\xdd\xca\xfd\xbe\xdd\xbf\xe2";
constexpr char BACKUP_SCAN_ENDED[] =
    "\xb1\xe9\xc0\xfa\xb1\xb8\xb7\xdd\xca\xfd\xbe\xdd\xbf\xe2\xbd\xe1\xca\xf8";

int32_t scan_cards()
{
    PDev__CardInfoIndex index = P_DEV__CARD_INFO_INDEX__INIT;
    PDev__CardInfo pattern = P_DEV__CARD_INFO__INIT;
    pattern.index = &index;
    return vx_mom_scan_sync(g_app_cg_global.global, APP_CG_DB_HOST, &pattern.base, 0,
                            app_cg_install_node_pmsg_f, nullptr);
}

int32_t scan_backup_cards()
{
    PDev__CardInfoIndex index = P_DEV__CARD_INFO_INDEX__INIT;
    PLibpub__AppCgCardBakInfo pattern = P_LIBPUB__APP_CG_CARD_BAK_INFO__INIT;
    pattern.index = &index;
    return vx_mom_scan_sync(g_app_cg_global.global, APP_CG_DB_HOST, &pattern.base, 0,
                            app_cg_scan_bak_card_info, nullptr);
}

int32_t handle_subscribed()
{
    APP_CG_WARN("subscribe ok");
    APP_CG_CHECK_RETURN(scan_cards());
    APP_CG_INFO("%s", BACKUP_SCAN_BEGINS);
    APP_CG_CHECK_RETURN(scan_backup_cards());
    APP_CG_INFO("%s", BACKUP_SCAN_ENDED);
    return 0;
}

// Returns 0 when the record has all parts that an event is judged by, -4 otherwise.
int32_t check_card_info(const PDev__CardInfo *card_info)
{
    if (card_info == nullptr) {
        APP_CG_ERROR("card_info NULL pointer, addr error!\n");
        return APP_CG_ERR_NULL;
    }
    if (card_info->index == nullptr) {
        APP_CG_ERROR("card_info->index NULL pointer, addr error!\n");
        return APP_CG_ERR_NULL;
    }
    if (card_info->static_info == nullptr) {
        APP_CG_ERROR("card_info->static_info NULL pointer, addr error!\n");
        return APP_CG_ERR_NULL;
    }
    return 0;
}

void log_not_online(const PDev__CardInfo &card)
{
    APP_CG_NOTICE("devid[%d] slotid[%d], sslotid[%d], node_type[%d] tipc_node_id[%d|0x%x] not online ",
                  card.index->devid, card.index->slotid, card.index->sslotid, card.static_info->node_type,
                  card.card_tipc_nodeid, static_cast<uint32_t>(card.card_tipc_nodeid));
}

// Writes or deletes all three results of a card.
void update_results(const PDev__CardInfo &card, int32_t stat, int32_t op)
{
    const PDev__CardInfoIndex &at = *card.index;
    const int32_t node_type = card.static_info->node_type;
    app_cg_update_mom_check_result(at.devid, at.slotid, at.sslotid, stat, op, node_type,
                                   card.card_tipc_nodeid);
    app_cg_update_card_check_result(at.devid, at.slotid, at.sslotid, stat, op, node_type, card.card_nodeid,
                                    card.config_dev_type);
    app_cg_update_dev_check_result(at.devid, at.slotid, at.sslotid, stat, op);
}

// Removes the results by TIPC node and by position, as far as they say what the flag is about.
void remove_results(const PDev__CardInfo &card, int32_t flag)
{
    const PDev__CardInfoIndex &at = *card.index;
    app_cg_del_mom_check_result(at.devid, at.slotid, at.sslotid, card.card_tipc_nodeid, flag);
    app_cg_del_card_check_result(at.devid, at.slotid, at.sslotid, flag);
}

int32_t handle_deleted(const PDev__CardInfo *card)
{
    const int32_t rv = check_card_info(card);
    if (rv != 0) {
        return rv;
    }
    log_not_online(*card);
    update_results(*card, APP_CG_STAT_DENIED, APP_CG_OP_DEL);

    const PDev__CardInfoIndex &at = *card->index;
    CardNode *node = app_cg_node_pos_search(at.devid, at.slotid, at.sslotid);
    if (node != nullptr) {
        app_cg_noti_start_deny_info(node, 0);
        app_cg_check_cancel_slot_timers(node);
    }
    app_cg_node_del(at.devid, at.slotid, at.sslotid);
    return 0;
}

// Makes the node of a new position. Returns null when memory runs out.
CardNode *create_node(const PDev__CardInfoIndex &at)
{
    CardNode templ = {};
    templ.devid = at.devid;
    templ.slotid = at.slotid;
    templ.sslotid = at.sslotid;
    CardNode *node = app_cg_node_init(templ, &g_app_cg_global.card_nodes);
    if (node == nullptr) {
        APP_CG_ERROR("app_cg_node_init failed, devid %d, slotid %d, sslotid %d", at.devid, at.slotid,
                     at.sslotid);
    }
    return node;
}

// A card that needs no check passes at once, on line or not.
void pass_exempt_card(CardNode *node, const PDev__CardInfo &card, bool is_main_board, bool no_modules)
{
    APP_CG_WARN("cm[%d] or no module to deny[%d], no need to process", is_main_board ? 1 : 0,
                no_modules ? 1 : 0);
    if (node->reported != 0 && node->stat == APP_CG_STAT_PASSED) {
        APP_CG_WARN("devid[%d] slot[%d] sslot[%d] is already passed.\r\n", node->devid, node->slotid,
                    node->sslotid);
        return;
    }
    update_results(card, APP_CG_STAT_PASSED, APP_CG_OP_SET);
    node->stat = APP_CG_STAT_PASSED;
    node->reported = 1;
}

// A card off line keeps its node, and nothing else.
void withdraw_offline_card(CardNode *node, const PDev__CardInfo &card)
{
    const PDev__CardInfoIndex &at = *card.index;
    log_not_online(card);
    remove_results(card, REMOVE_PASS);
    app_cg_update_dev_check_result(at.devid, at.slotid, at.sslotid, APP_CG_STAT_UNDECIDED, APP_CG_OP_DEL);
    node->reported = 0;
    node->stat = APP_CG_STAT_UNDECIDED;
    app_cg_noti_start_deny_info(node, 0);
    app_cg_del_check_ack(at.devid, at.slotid, at.sslotid, "", 1);
}

// Takes over what the record says. Returns true when the card has just come on line.
bool refresh_node(CardNode *node, const PDev__CardInfo &card)
{
    node->node_type = card.static_info->node_type;
    node->config_dev_type = card.config_dev_type;
    node->tipc_node = card.card_tipc_nodeid;
    node->node = card.card_nodeid;
    node->dm_install = 1;

    const bool coming_online = node->is_online == 0 && card.is_online != 0;
    if (coming_online) {
        remove_results(card, REMOVE_DENY);
    }
    node->is_online = card.is_online != 0 ? 1 : 0;
    return coming_online;
}

int32_t handle_written(const vx_mom_result_t *result)
{
    APP_CG_CHECK_STORE_RESULT(result);
    const auto *card = reinterpret_cast<const PDev__CardInfo *>(result->record);
    const int32_t rv = check_card_info(card);
    if (rv != 0) {
        return rv;
    }
    const PDev__CardInfoIndex &at = *card->index;
    // At error level on purpose: every installation shows at the lowest verbosity.
    APP_CG_ERROR(
        " CARD_INSTALL enter, devid[%d] slotid[%d], sslotid[%d], node_type[%d] tipc_node_id[%d|0x%x] ",
        at.devid, at.slotid, at.sslotid, card->static_info->node_type, card->card_tipc_nodeid,
        static_cast<uint32_t>(card->card_tipc_nodeid));

    CardNode *node = app_cg_node_pos_search(at.devid, at.slotid, at.sslotid);
    if (node == nullptr) {
        node = create_node(at);
        if (node == nullptr) {
            return APP_CG_ERR_RESOURCE;
        }
    }
    // A node just made is off line, so a new card that is on line is notified of by this as well.
    const bool notify = refresh_node(node, *card);

    const bool no_modules = g_app_cg_global.wait_obj.app_cg_wait_obj_num == 0;
    const bool is_main_board = card->static_info->node_type == P_DEV__DM_NODE_TYPE_E__DM_TYPE_MB;
    if (no_modules || is_main_board) {
        pass_exempt_card(node, *card, is_main_board, no_modules);
        return 0;
    }
    if (card->is_online == 0) {
        withdraw_offline_card(node, *card);
    }
    if (notify) {
        app_cg_noti_start_deny_info(node, 1);
    }
    return 0;
}

} // namespace

int32_t app_cg_install_node_pmsg_f(void * /*arg*/, vx_mom_pmsg_t *pmsg)
{
    if (pmsg == nullptr) {
        APP_CG_ERROR("pmsg NULL pointer, addr error!\n");
        return APP_CG_ERR_NULL;
    }
    APP_CG_INFO("pmsg->cmd %d", pmsg->cmd);
    switch (pmsg->cmd) {
    case VX_MOM_CMD_DELETED:
        return handle_deleted(reinterpret_cast<const PDev__CardInfo *>(pmsg->record));
    case VX_MOM_CMD_SET:
    case VX_MOM_CMD_HMSET:
        return handle_written(pmsg->result);
    case VX_MOM_CMD_SUBSCRIBED:
        return handle_subscribed();
    default:
        APP_CG_INFO("pmsg->cmd %d", pmsg->cmd);
        return 0;
    }
}
