// The check modules' answers. One DENY denies a card at once; the last outstanding PASS admits it, even when
// it was denied before.
//
// An answer is deleted before anything is decided, so that none is left over that nobody waits for. The
// callback is split over several functions, but its log records are one callback's.
#define APP_CG_LOG_FUNCTION "app_cg_check_ack_pmsg_f"

#include "app_cg/check_ack.h"

#include <cstring>

#include "app_cg/app_cg.h"
#include "app_cg/card_nodes.h"
#include "app_cg/check_modules.h"
#include "app_cg/check_request.h"
#include "app_cg/check_result.h"
#include "app_cg/store_result.h"
#include "app_cg_dbg/logging.h"
#include "p_libpub.pb-c.h"
#include "s_dev.pb-c.h"

namespace
{

constexpr int32_t SYSLOG_WARNING = 4;
constexpr int32_t SYSLOG_FLAG = 1;
constexpr char SYSLOG_PROGRAM[] = "APP_CG";

// Record fields are not const; nothing writes through them.
char power_off_module[] = "cap";
char power_off_cause[] = "not compatible";

// Keeps the reason with the node: cut to what fits, always terminated.
void store_reason(CardNode *node, const char *reason)
{
    std::memset(node->reason, 0, sizeof node->reason);
    std::memcpy(node->reason, reason, strnlen(reason, sizeof node->reason - 1));
}

// Notes a denial. Returns false when the card has been denied before and nothing is to be published.
bool deny_card(CardNode *node, const PLibpub__AppCgCardCheckAck &ack)
{
    const char *mod_name = ack.index->mod_name;
    if (node->stat == APP_CG_STAT_DENIED && node->reported != 0) {
        APP_CG_WARN("dev[%d] slot[%d] sslot[%d] is already disable.\r\n", node->devid, node->slotid,
                    node->sslotid);
        return false;
    }
    const char *reason = ack.reason != nullptr ? ack.reason : "";
    node->stat = APP_CG_STAT_DENIED;
    store_reason(node, reason);
    APP_CG_ERROR("dev[%d] slot[%d] sslot[%d] is denied by[%s] reason[%s].\r\n", node->devid, node->slotid,
                 node->sslotid, mod_name, reason);

    char fallback[APP_CG_REASON_LEN] = {};
    at_snprintf(fallback, sizeof fallback, "%s %s", mod_name, "not compatible");
    printk_syslog_ext(SYSLOG_WARNING, SYSLOG_PROGRAM, "CG_MNG", SYSLOG_FLAG,
                      "Card in slot %d/%d will be disabled due to reason: %s.", node->devid, node->slotid,
                      reason[0] != '\0' ? reason : fallback);
    return true;
}

// Notes a module's PASS. Returns false while others are waited for, or when the card has passed before.
bool pass_card(CardNode *node, int32_t module, const char *mod_name)
{
    uint32_t &outstanding = node->wait_obj.app_cg_wait_obj_bmp;
    outstanding &= ~(1U << static_cast<uint32_t>(module));
    // At error level on purpose: every module's verdict shows at the lowest verbosity.
    APP_CG_ERROR("dev[%d] slot[%d] sslot[%d]  is passed by[%s].\r\n", node->devid, node->slotid,
                 node->sslotid, mod_name);
    if (outstanding != 0) {
        APP_CG_WARN("dev[%d] slot[%d] sslot[%d] is waitting [%d].\r\n", node->devid, node->slotid,
                    node->sslotid, static_cast<int32_t>(outstanding));
        return false;
    }
    if (node->stat == APP_CG_STAT_PASSED && node->reported != 0) {
        APP_CG_WARN("dev[%d] slot[%d] sslot[%d] is already passed.\r\n", node->devid, node->slotid,
                    node->sslotid);
        return false;
    }
    node->stat = APP_CG_STAT_PASSED;
    APP_CG_WARN("dev[%d] slot[%d] sslot[%d] is passed by all.\r\n", node->devid, node->slotid, node->sslotid);
    return true;
}

void publish(const CardNode &node)
{
    app_cg_update_mom_check_result(node.devid, node.slotid, node.sslotid, node.stat, APP_CG_OP_SET,
                                   node.node_type, node.tipc_node);
    app_cg_update_card_check_result(node.devid, node.slotid, node.sslotid, node.stat, APP_CG_OP_SET,
                                    node.node_type, node.node, node.config_dev_type);
    app_cg_update_dev_check_result(node.devid, node.slotid, node.sslotid, node.stat, APP_CG_OP_SET);
}

// Asks for the card to be powered off. The lines about it are written whatever the store answers.
void power_off(const CardNode &node)
{
    SDev__ImCardPowerOnoffIndex index = S_DEV__IM_CARD_POWER_ONOFF_INDEX__INIT;
    index.devid = node.devid;
    index.slotid = node.slotid;
    index.sslotid = node.sslotid;
    index.mod_name = power_off_module;
    index.cause = power_off_cause;
    SDev__ImCardPowerOnoff power = S_DEV__IM_CARD_POWER_ONOFF__INIT;
    power.index = &index;
    power.updown = 0;

    APP_CG_WARN("dev[%d] slot[%d] sslot[%d], power.updown[%d], power off", node.devid, node.slotid,
                node.sslotid, power.updown);
    if (vx_mom_set_sync(g_app_cg_global.global, APP_CG_DB_DEV_GLOBAL, &power.base) != 0) {
        APP_CG_ERROR("Power off devid %d, slotid %d, sslotid %d  failed", node.devid, node.slotid,
                     node.sslotid);
    }
    printk_syslog_ext(SYSLOG_WARNING, SYSLOG_PROGRAM, "MIX_MNG", SYSLOG_FLAG,
                      "Card in slot %d/%d will be controlled to shutdown for %s.", node.devid, node.slotid,
                      "not compatible");
    APP_CG_WARN("set power off success!!!");
}

// Decides about the card of a complete answer.
int32_t decide(const PLibpub__AppCgCardCheckAck &ack)
{
    const PLibpub__AppCgCardCheckAckIndex &at = *ack.index;
    const int32_t module = app_cg_wait_obj_lookup(at.mod_name);
    CardNode *node = app_cg_node_pos_search(at.devid, at.slotid, at.t_sslotid);
    if (node == nullptr || module == -1) {
        APP_CG_ERROR("find node error[%p][%d], ignore.\r\n", static_cast<void *>(node), module);
        return APP_CG_ERR_RESOURCE;
    }

    const bool decided = ack.ret != 0 ? deny_card(node, ack) : pass_card(node, module, at.mod_name);
    if (!decided) {
        return 0;
    }
    publish(*node);
    if (node->stat == APP_CG_STAT_DENIED) {
        power_off(*node);
    }
    node->reported = 1;
    app_cg_noti_start_deny_info(node, 0);
    return 0;
}

int32_t handle_written(const vx_mom_result_t *result)
{
    APP_CG_CHECK_STORE_RESULT(result);
    const auto *ack = reinterpret_cast<const PLibpub__AppCgCardCheckAck *>(result->record);
    if (ack == nullptr) {
        APP_CG_ERROR("ack NULL pointer, addr error!\n");
        return APP_CG_ERR_NULL;
    }
    if (ack->index == nullptr) {
        APP_CG_ERROR("ack->index NULL pointer, addr error!\n");
        return APP_CG_ERR_NULL;
    }
    app_cg_del_check_ack(ack->index->devid, ack->index->slotid, ack->index->t_sslotid, ack->index->mod_name,
                         0);
    return decide(*ack);
}

} // namespace

int32_t app_cg_check_ack_pmsg_f(void * /*arg*/, vx_mom_pmsg_t *pmsg)
{
    if (pmsg == nullptr) {
        APP_CG_ERROR("pmsg NULL pointer, addr error!\n");
        return APP_CG_ERR_NULL;
    }
    APP_CG_INFO("pmsg->cmd %d", pmsg->cmd);
    switch (pmsg->cmd) {
    case VX_MOM_CMD_SET:
    case VX_MOM_CMD_HMSET:
        return handle_written(pmsg->result);
    case VX_MOM_CMD_SUBSCRIBED:
        APP_CG_WARN("subscribe ok");
        return 0;
    default:
        APP_CG_INFO("pmsg->cmd %d", pmsg->cmd);
        return 0;
    }
}
