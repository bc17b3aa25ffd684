// The check request of a card and its timer. A module that stays silent must not keep a card out for ever, so
// the gate fails open when the time is over.
//
// Starting a check again does not stop the timer of the start before: it still ends the check at its own
// time. Its handle is gone from the node then, so all armed timers are listed here, to be cancelled when
// their node goes; nothing else looks at that list.

#include "app_cg/check_request.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <new>
#include <vector>

#include "app_cg/card_nodes.h"
#include "app_cg/check_result.h"
#include "app_cg/record_enum.h"
#include "app_cg_dbg/logging.h"
#include "p_libpub.pb-c.h"
#include "vx_mom.h"

namespace
{

constexpr timeval CHECK_TIMEOUT = {300, 0};

struct ArmedTimer {
    vx_thread_t *timer;
    const CardNode *node;
};

std::vector<ArmedTimer> armed_timers;

// Makes room for one more, so that an armed timer can always be listed. Returns false without memory. Room is
// doubled: room for just one would have the list copied for each card of a start.
bool reserve_armed_timer()
{
    try {
        if (armed_timers.size() == armed_timers.capacity()) {
            armed_timers.reserve(2 * armed_timers.size() + 1);
        }
    } catch (const std::bad_alloc &) {
        return false;
    }
    return true;
}

void cancel_armed_timer(vx_thread_t *timer)
{
    std::erase_if(armed_timers, [timer](const ArmedTimer &armed) { return armed.timer == timer; });
    vx_thread_cancel(timer);
}

// What the loop hands over need not be the handle. All timers are armed for the same time, so those of a card
// fire in the order of their arming.
void forget_fired_timer(const CardNode *node)
{
    const auto fired = std::find_if(armed_timers.begin(), armed_timers.end(),
                                    [node](const ArmedTimer &armed) { return armed.node == node; });
    if (fired != armed_timers.end()) {
        armed_timers.erase(fired);
    }
}

} // namespace

int32_t app_cg_noti_start_deny_info(CardNode *node, uint32_t start)
{
    if (node == nullptr) {
        APP_CG_ERROR("node NULL pointer, addr error!\n");
        return APP_CG_ERR_NULL;
    }
    app_cg_dump_node(*node);
    APP_CG_INFO("enter devid[%d] slotid[%d] sslotid[%d]start %d", node->devid, node->slotid, node->sslotid,
                static_cast<int32_t>(start));

    PDev__CardInfoIndex index = P_DEV__CARD_INFO_INDEX__INIT;
    index.devid = node->devid;
    index.slotid = node->slotid;
    index.sslotid = node->sslotid;
    PLibpub__AppCgCardCheckInfo request = P_LIBPUB__APP_CG_CARD_CHECK_INFO__INIT;
    request.index = &index;

    int32_t rv = 0;
    if (start == 0) {
        rv = vx_mom_del(g_app_cg_global.global, APP_CG_DB_HOST, &request.base, nullptr, nullptr);
        if (rv != 0 && rv != APP_CG_STORE_ABSENT) {
            APP_CG_ERROR("del failed, devid %d, slotid %d sslotid %d", node->devid, node->slotid,
                         node->sslotid);
        }
        if (node->timer != nullptr) {
            cancel_armed_timer(node->timer);
            node->timer = nullptr;
        }
    } else {
        static constexpr int32_t fields[] = {6, 7, 8};
        request.type = node->config_dev_type;
        app_cg_enum_set(request.node_type, node->node_type);
        request.card_nodeid = node->node;
        rv = vx_mom_hmset(g_app_cg_global.global, APP_CG_DB_HOST, &request.base, fields, std::size(fields),
                          nullptr, nullptr);
        if (rv != 0 && rv != APP_CG_STORE_ABSENT) {
            APP_CG_ERROR("hmset failed, devid %d, slotid %d sslotid %d", node->devid, node->slotid,
                         node->sslotid);
        }
        // A card without a timer still waits for its modules; the failure has been logged.
        app_cg_check_add_slot_timer(node);
    }
    APP_CG_INFO("leave");
    return rv;
}

int32_t app_cg_check_add_slot_timer(CardNode *node)
{
    node->timer = nullptr;
    if (reserve_armed_timer()) {
        node->timer =
            vx_thread_add_timer_timeval(g_app_cg_global.global, app_cg_pro_timeout_card, node, CHECK_TIMEOUT);
    }
    if (node->timer == nullptr) {
        APP_CG_FATAL("vx_thread_add_timer failed, devid[%d] slotid[%d] sslotid[%d]", node->devid,
                     node->slotid, node->sslotid);
        return APP_CG_ERR_RESOURCE;
    }
    armed_timers.push_back({node->timer, node});
    return 0;
}

void app_cg_check_cancel_slot_timers(CardNode *node)
{
    node->timer = nullptr;
    for (std::size_t i = 0; i < armed_timers.size();) {
        if (armed_timers[i].node == node) {
            vx_thread_cancel(armed_timers[i].timer);
            armed_timers.erase(armed_timers.begin() + static_cast<std::ptrdiff_t>(i));
        } else {
            ++i;
        }
    }
}

int32_t app_cg_pro_timeout_card(vx_thread_t *t)
{
    APP_CG_WARN("enter");
    if (t == nullptr) {
        APP_CG_ERROR("t NULL pointer, addr error!\n");
        return APP_CG_ERR_NULL;
    }
    auto *node = static_cast<CardNode *>(t->arg);
    if (node == nullptr) {
        APP_CG_ERROR("node NULL pointer, addr error!\n");
        return APP_CG_ERR_NULL;
    }
    forget_fired_timer(node);
    APP_CG_FATAL("devid[%d] slotid[%d] sslotid[%d] wait_obj_bmp[%x]", node->devid, node->slotid,
                 node->sslotid, node->wait_obj.app_cg_wait_obj_bmp);

    // What a writer could not write it has logged itself; the card is admitted all the same.
    app_cg_update_mom_check_result(node->devid, node->slotid, node->sslotid, APP_CG_STAT_PASSED,
                                   APP_CG_OP_SET, node->node_type, node->tipc_node);
    app_cg_update_card_check_result(node->devid, node->slotid, node->sslotid, APP_CG_STAT_PASSED,
                                    APP_CG_OP_SET, node->node_type, node->node, node->config_dev_type);
    app_cg_update_dev_check_result(node->devid, node->slotid, node->sslotid, APP_CG_STAT_PASSED,
                                   APP_CG_OP_SET);

    node->stat = APP_CG_STAT_PASSED;
    node->reported = 1;
    node->wait_obj.app_cg_wait_obj_bmp = 0;
    std::memset(node->wait_obj.app_cg_wait_obj_name, 0, sizeof node->wait_obj.app_cg_wait_obj_name);
    node->timer = nullptr;
    app_cg_noti_start_deny_info(node, 0);
    APP_CG_WARN("leave");
    return 0;
}
