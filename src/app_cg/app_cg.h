// The daemon's global state: its record of records, the card node, and the check-module registry.
//
// One process, one thread, no locks: everything here is touched from the event-loop thread only.
#ifndef APP_CG_H
#define APP_CG_H

#include <sys/time.h>

#include <cstddef>
#include <cstdint>

#include "vx_thread.h"
#include "vx_zlog.h"

// At most this many check modules are registered, deliberately fewer than the bitmap has bits.
constexpr int32_t APP_CG_WAIT_OBJ_MAX = 16;
// A module's name, terminator included; longer names are cut.
constexpr std::size_t APP_CG_WAIT_OBJ_NAME_LEN = 16;
// A deny reason, terminator included; longer reasons are cut.
constexpr std::size_t APP_CG_REASON_LEN = 256;

// The store databases that the daemon works with.
constexpr int32_t APP_CG_DB_HOST = 1;
constexpr int32_t APP_CG_DB_CAP = 28;
constexpr int32_t APP_CG_DB_DEV_GLOBAL = 33;

// Results of our own; the platform's are passed on unchanged.
constexpr int32_t APP_CG_ERR_NULL = -4;      // a null argument, or a record with a missing part
constexpr int32_t APP_CG_ERR_RESOURCE = -11; // a failed resource, or an unknown card or module
constexpr int32_t APP_CG_ERR_STORE = -21;    // a store result that is missing or carries an error code
// The store's answer that some writers take for success.
constexpr int32_t APP_CG_STORE_ABSENT = -5;

// Admission status of a card, and the `stat` argument of the result writers. Not the scale of the stored
// results, where DENY is 0.
constexpr int32_t APP_CG_STAT_UNDECIDED = 0;
constexpr int32_t APP_CG_STAT_PASSED = 1;
constexpr int32_t APP_CG_STAT_DENIED = 2;

// Operation of the result writers; every value other than 0 means SET.
constexpr int32_t APP_CG_OP_DEL = 0;
constexpr int32_t APP_CG_OP_SET = 1;

// The check-module registry. A card node carries a copy as it stood when the node was created.
struct app_cg_wait_obj_t {
    int32_t app_cg_wait_obj_num;  // number of registered modules, 0 to 16
    uint32_t app_cg_wait_obj_bmp; // bit i: module i; in a node: the modules still waited for
    char app_cg_wait_obj_name[APP_CG_WAIT_OBJ_MAX][APP_CG_WAIT_OBJ_NAME_LEN];
};

// What the daemon knows of one card position, and how far its admission has come.
struct CardNode {
    int32_t node;            // the card's node id; sort key of the table
    int32_t config_dev_type; // configured device type
    int32_t devid;
    int32_t slotid;
    int32_t sslotid;
    uint8_t is_online;
    int32_t node_type;              // p_dev.dm_node_type_e
    int32_t tipc_node;              // TIPC node id
    uint8_t dm_install;             // 1 once a write of the card's information was handled
    uint8_t reported;               // 1 once a final result was published
    char reason[APP_CG_REASON_LEN]; // reason of the last denial, terminated
    int32_t stat;                   // APP_CG_STAT_*
    vx_thread_t *timer;             // the timer armed last, or null
    app_cg_wait_obj_t wait_obj;
};

// Links of the card node table; the head is an element without a node.
struct app_cg_list_t {
    app_cg_list_t *next;
    app_cg_list_t *prev;
};

struct app_cg_global_t {
    int32_t grole;       // p_dev.dm_role_e as last read from the store
    uint8_t grole_ready; // 1 once the role was read after a subscription succeeded
    timeval time_run;
    timeval time_init_global;
    timeval time_ham_init;
    timeval time_init_st;
    vx_zlog_category_t *zlog_handle; // null until logging is up
    app_cg_wait_obj_t wait_obj;
    app_cg_list_t card_nodes;
    vx_global_t *global; // the platform context
};

extern app_cg_global_t g_app_cg_global;

#endif
