// Everything that is written to the store about a card's admission, and everything that is removed again.
//
// Which of the store's answers count as success differs from record to record, and so does whether the role
// matters: the results of databases 28 and 33 are the stack's, and only its master writes them; the record
// of database 1 is each device's own.

#include "app_cg/check_result.h"

#include <cstdio>
#include <iterator>

#include "app_cg/app_cg.h"
#include "app_cg/card_nodes.h"
#include "app_cg/record_enum.h"
#include "app_cg_dbg/logging.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "vx_mom.h"

namespace
{

constexpr int32_t ERR_NO_NODE = 11; // positive, unlike the other codes: callers never looked at its sign
constexpr int32_t FLAG_PASS = 0;
constexpr int32_t FLAG_DENY = 1;
constexpr int32_t ACK_POSITION_KEYS = 3; // devid, slotid, t_sslotid

// Record fields are not const; nothing writes through them.
char custom_status_module[] = "APP_CG";
char custom_status_reason[] = "not compatible";

// Some texts print the slot through "%s"; their readers know them with the number in that place.
struct SlotText {
    explicit SlotText(int32_t slotid) { std::snprintf(text, sizeof text, "%d", slotid); }
    char text[12] = {};
};

const char *op_text(int32_t op)
{
    return op == APP_CG_OP_DEL ? "DEL" : "SET";
}

PLibpub__AppCgCardCheckStat stored_stat(int32_t stat)
{
    return stat == APP_CG_STAT_PASSED ? P_LIBPUB__APP_CG_CARD_CHECK_STAT__APP_CG_CHECK_PASS
                                      : P_LIBPUB__APP_CG_CARD_CHECK_STAT__APP_CG_CHECK_DENY;
}

bool failed_unless_absent(int32_t rv)
{
    return rv != 0 && rv != APP_CG_STORE_ABSENT;
}

// A published result is only removed when it says what the flag is about.
bool should_remove(int32_t stat, int32_t flag)
{
    return (flag == FLAG_PASS && stat == APP_CG_STAT_PASSED) ||
           (flag == FLAG_DENY && stat == APP_CG_STAT_DENIED);
}

PDev__CardInfoIndex position_index(int32_t devid, int32_t slotid, int32_t sslotid)
{
    PDev__CardInfoIndex index = P_DEV__CARD_INFO_INDEX__INIT;
    index.devid = devid;
    index.slotid = slotid;
    index.sslotid = sslotid;
    return index;
}

PDev__CardTipcIndex tipc_index(int32_t card_tipc_nodeid)
{
    PDev__CardTipcIndex index = P_DEV__CARD_TIPC_INDEX__INIT;
    index.card_tipc_nodeid = card_tipc_nodeid;
    return index;
}

int32_t store_del(int32_t db, const ProtobufCMessage *record)
{
    return vx_mom_del(g_app_cg_global.global, db, record, nullptr, nullptr);
}

int32_t store_set(int32_t db, const ProtobufCMessage *record)
{
    return vx_mom_set(g_app_cg_global.global, db, record, nullptr, nullptr);
}

} // namespace

int32_t app_cg_update_mom_check_result(int32_t devid, int32_t slotid, int32_t sslotid, int32_t stat,
                                       int32_t op, int32_t node_type, int32_t card_tipc_nodeid)
{
    APP_CG_INFO("update dev[%d] slot[%d] sslot[%d], stat[%d] op[%s], node_type[%d] tipc_nodeid[%d|0x%x]",
                devid, slotid, sslotid, stat, op_text(op), node_type, card_tipc_nodeid,
                static_cast<uint32_t>(card_tipc_nodeid));

    PDev__CardTipcIndex index = tipc_index(card_tipc_nodeid);
    PLibpub__AppCgMomDenyCheckResult record = P_LIBPUB__APP_CG_MOM_DENY_CHECK_RESULT__INIT;
    record.index = &index;
    if (op == APP_CG_OP_DEL) {
        const int32_t rv = store_del(APP_CG_DB_HOST, &record.base);
        if (rv != 0) {
            APP_CG_ERROR("del dev[%d] slot[%s] sslot[%d] card_tipc_nodeid[%d|0x%x] failed", devid,
                         SlotText(slotid).text, sslotid, card_tipc_nodeid,
                         static_cast<uint32_t>(card_tipc_nodeid));
            return rv;
        }
    } else {
        record.stat = stored_stat(stat);
        app_cg_enum_set(record.node_type, node_type);
        const int32_t rv = store_set(APP_CG_DB_HOST, &record.base);
        if (rv != 0) {
            APP_CG_ERROR("update dev[%d] slot[%d] sslot[%d], card_tipc_nodeid[%d|0x%x] stat[%d] op[%s], "
                         "node_type[%d], rv %d",
                         devid, slotid, sslotid, card_tipc_nodeid, static_cast<uint32_t>(card_tipc_nodeid),
                         stat, "SET", node_type, rv);
            return rv;
        }
    }
    APP_CG_INFO("leave");
    return 0;
}

int32_t app_cg_update_card_check_result(int32_t devid, int32_t slotid, int32_t sslotid, int32_t stat,
                                        int32_t op, int32_t node_type, int32_t card_nodeid,
                                        int32_t config_dev_type)
{
    APP_CG_INFO("update dev[%d] slot[%d] sslot[%d], stat[%d] op[%s], node_type[%d], card_nodeid[%d|0x%x] "
                "config_dev_type[%d]",
                devid, slotid, sslotid, stat, op_text(op), node_type, card_nodeid,
                static_cast<uint32_t>(card_nodeid), config_dev_type);
    if (g_app_cg_global.grole != P_DEV__DM_ROLE_E__DM_ROLE_MASTER) {
        APP_CG_WARN("not master, no need to pro, role %d", g_app_cg_global.grole);
        return 0;
    }

    PDev__CardInfoIndex index = position_index(devid, slotid, sslotid);
    PLibpub__AppCgCardDenyCheckResult record = P_LIBPUB__APP_CG_CARD_DENY_CHECK_RESULT__INIT;
    record.index = &index;
    if (op == APP_CG_OP_DEL) {
        const int32_t rv = store_del(APP_CG_DB_CAP, &record.base);
        if (failed_unless_absent(rv)) {
            APP_CG_ERROR("del dev[%d] slot[%d] sslot[%d] failed", devid, slotid, sslotid);
            return rv;
        }
    } else {
        static constexpr int32_t fields[] = {6, 7, 8};
        record.stat = stored_stat(stat);
        record.config_dev_type = config_dev_type;
        record.card_nodeid = card_nodeid;
        const int32_t rv = vx_mom_hmset(g_app_cg_global.global, APP_CG_DB_CAP, &record.base, fields,
                                        std::size(fields), nullptr, nullptr);
        if (failed_unless_absent(rv)) {
            APP_CG_ERROR("update dev[%d] slot[%d] sslot[%d], stat[%d] op[%s], card_nodeid[%d|0x%x] "
                         "config_dev_type[%d] rv %d",
                         devid, slotid, sslotid, stat, "SET", card_nodeid, static_cast<uint32_t>(card_nodeid),
                         config_dev_type, rv);
            return rv;
        }
    }
    APP_CG_INFO("leave");
    return 0;
}

int32_t app_cg_update_dev_check_result(int32_t devid, int32_t slotid, int32_t sslotid, int32_t stat,
                                       int32_t op)
{
    APP_CG_INFO("update dev[%d] slot[%d] sslot[%d], stat[%d] op[%s]", devid, slotid, sslotid, stat,
                op_text(op));
    if (g_app_cg_global.grole != P_DEV__DM_ROLE_E__DM_ROLE_MASTER) {
        APP_CG_WARN("not master, no need to pro, role %d", g_app_cg_global.grole);
        return 0;
    }

    PDev__DmSetCardCustomStIndex index = P_DEV__DM_SET_CARD_CUSTOM_ST_INDEX__INIT;
    index.t_devid = devid;
    index.t_slotid = slotid;
    index.t_sslotid = sslotid;
    index.t_mod_name = custom_status_module;
    index.t_reason = custom_status_reason;
    PDev__DmSetCardCustomSt record = P_DEV__DM_SET_CARD_CUSTOM_ST__INIT;
    record.index = &index;
    if (stat == APP_CG_STAT_DENIED && op != APP_CG_OP_DEL) {
        record.level = P_DEV__DM_CTM_LEVEL_E__DM_CTM_APP_CG;
        record.status = P_DEV__DM_CTM_STATUS_E__CANNOT_STARTUP;
        const int32_t rv = store_set(APP_CG_DB_DEV_GLOBAL, &record.base);
        if (failed_unless_absent(rv)) {
            APP_CG_ERROR("update dev[%d] slot[%d] sslot[%d], stat[%d] op[%s], rv %d", devid, slotid, sslotid,
                         APP_CG_STAT_DENIED, "SET", rv);
            return rv;
        }
    } else {
        // Nothing to complain of: a status that was set before goes away.
        const int32_t rv = store_del(APP_CG_DB_DEV_GLOBAL, &record.base);
        if (failed_unless_absent(rv)) {
            APP_CG_ERROR("del dev[%d] slot[%d] sslot[%d] failed", devid, slotid, sslotid);
            return rv;
        }
    }
    APP_CG_INFO("leave");
    return 0;
}

int32_t app_cg_del_mom_check_result(int32_t devid, int32_t slotid, int32_t sslotid, int32_t card_tipc_nodeid,
                                    int32_t flag)
{
    APP_CG_INFO("del check result devid: %d, slotid: %d, sslotid: %d, tipc_nodeid: %d,flag: %d", devid,
                slotid, sslotid, card_tipc_nodeid, flag);
    const CardNode *node = app_cg_node_pos_search(devid, slotid, sslotid);
    if (node == nullptr) {
        APP_CG_ERROR("del mom check result error devid: %d, sloti %d, sslotid: %d", devid, slotid, sslotid);
        return ERR_NO_NODE;
    }
    APP_CG_INFO("node state :%d, flag:%d", node->stat, flag);
    if (!should_remove(node->stat, flag)) {
        return 0;
    }

    PDev__CardTipcIndex index = tipc_index(card_tipc_nodeid);
    PLibpub__AppCgMomDenyCheckResult record = P_LIBPUB__APP_CG_MOM_DENY_CHECK_RESULT__INIT;
    record.index = &index;
    const int32_t rv = store_del(APP_CG_DB_HOST, &record.base);
    if (rv != 0) {
        APP_CG_ERROR("del mom check result dev[%d] slot[%s] sslot[%d] card_tipc_nodeid[%d] failed", devid,
                     SlotText(slotid).text, sslotid, card_tipc_nodeid);
        return rv;
    }
    if (flag == FLAG_PASS) {
        APP_CG_WARN("del mom check result pass dev[%d] slot[%s] sslot[%d] card_tipc_nodeid[%d]", devid,
                    SlotText(slotid).text, sslotid, card_tipc_nodeid);
    } else {
        APP_CG_WARN("del mom check result deny dev[%d] slot[%s] sslot[%d] card_tipc_nodeid[%d]", devid,
                    SlotText(slotid).text, sslotid, card_tipc_nodeid);
    }
    return 0;
}

int32_t app_cg_del_card_check_result(int32_t devid, int32_t slotid, int32_t sslotid, int32_t flag)
{
    APP_CG_INFO("del check result devid: %d, slotid: %d, sslotid: %d,flag: %d", devid, slotid, sslotid, flag);
    const CardNode *node = app_cg_node_pos_search(devid, slotid, sslotid);
    if (node == nullptr) {
        APP_CG_ERROR("del mom check result error devid: %d, sloti %d, sslotid: %d", devid, slotid, sslotid);
        return ERR_NO_NODE;
    }
    APP_CG_INFO("node state :%d, flag :%d", node->stat, flag);
    if (!should_remove(node->stat, flag)) {
        return 0;
    }

    PDev__CardInfoIndex index = position_index(devid, slotid, sslotid);
    PLibpub__AppCgCardDenyCheckResult record = P_LIBPUB__APP_CG_CARD_DENY_CHECK_RESULT__INIT;
    record.index = &index;
    const int32_t rv = store_del(APP_CG_DB_CAP, &record.base);
    if (rv != 0) {
        APP_CG_ERROR("del card check result dev[%d] slot[%s] sslot[%d] failed", devid, SlotText(slotid).text,
                     sslotid);
        return rv;
    }
    if (flag == FLAG_PASS) {
        APP_CG_WARN("del card check result pass dev[%d] slot[%s]", devid, SlotText(slotid).text);
    } else {
        APP_CG_WARN("del card check result deny dev[%d] slot[%s]", devid, SlotText(slotid).text);
    }
    return 0;
}

int32_t app_cg_del_check_ack(int32_t devid, int32_t slotid, int32_t sslotid, const char *mod_name,
                             uint8_t batch)
{
    if (mod_name == nullptr) {
        APP_CG_ERROR("mod_name NULL pointer, addr error!\n");
        return APP_CG_ERR_NULL;
    }
    APP_CG_INFO("del dev[%d] slot[%d] sslot[%d], mod_name[%s], batch[%d]", devid, slotid, sslotid, mod_name,
                batch);

    PLibpub__AppCgCardCheckAckIndex index = P_LIBPUB__APP_CG_CARD_CHECK_ACK_INDEX__INIT;
    index.devid = devid;
    index.slotid = slotid;
    index.t_sslotid = sslotid;
    PLibpub__AppCgCardCheckAck record = P_LIBPUB__APP_CG_CARD_CHECK_ACK__INIT;
    record.index = &index;
    if (batch != 0) {
        const int32_t rv = vx_mom_pdel(g_app_cg_global.global, APP_CG_DB_HOST, &record.base,
                                       ACK_POSITION_KEYS, nullptr, nullptr);
        if (rv != 0) {
            APP_CG_ERROR("pdel dev[%d] slot[%d] sslot[%d] failed", devid, slotid, sslotid);
            return rv;
        }
    } else {
        index.mod_name = const_cast<char *>(mod_name); // a record passed to the store is only read
        const int32_t rv = store_del(APP_CG_DB_HOST, &record.base);
        if (rv != 0) {
            APP_CG_ERROR("del dev[%d] slot[%d] sslot[%d] mod_name[%s] failed", devid, slotid, sslotid,
                         mod_name);
            return rv;
        }
    }
    APP_CG_INFO("leave");
    return 0;
}
