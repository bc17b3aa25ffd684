// What is published about a card, and what is removed again.
//
// The writers of databases 28 and 33 do nothing unless this device is the global master; the writer of
// database 1 and all removers act on every daemon.
//
// `stat` is APP_CG_STAT_*: 1 is stored as PASS, anything else as DENY. `op` is APP_CG_OP_*. All return 0
// for success or nothing to do, otherwise the store's result.
#ifndef APP_CG_CHECK_RESULT_H
#define APP_CG_CHECK_RESULT_H

#include <cstdint>

// Result by TIPC node, database 1.
int32_t app_cg_update_mom_check_result(int32_t devid, int32_t slotid, int32_t sslotid, int32_t stat,
                                       int32_t op, int32_t node_type, int32_t card_tipc_nodeid);

// Result by position, database 28. `node_type` is only logged.
int32_t app_cg_update_card_check_result(int32_t devid, int32_t slotid, int32_t sslotid, int32_t stat,
                                        int32_t op, int32_t node_type, int32_t card_nodeid,
                                        int32_t config_dev_type);

// Custom status, database 33: written for stat 2 with SET, deleted in every other case.
int32_t app_cg_update_dev_check_result(int32_t devid, int32_t slotid, int32_t sslotid, int32_t stat,
                                       int32_t op);

// Remove a published PASS (flag 0, node passed) or a published DENY (flag 1, node denied); nothing
// otherwise. Return 11 when the position has no node.
int32_t app_cg_del_mom_check_result(int32_t devid, int32_t slotid, int32_t sslotid, int32_t card_tipc_nodeid,
                                    int32_t flag);
int32_t app_cg_del_card_check_result(int32_t devid, int32_t slotid, int32_t sslotid, int32_t flag);

// Deletes one module's acknowledgement, or with batch not 0 all of the position; `mod_name` is then not
// used. Returns -4 for a null name.
int32_t app_cg_del_check_ack(int32_t devid, int32_t slotid, int32_t sslotid, const char *mod_name,
                             uint8_t batch);

#endif
