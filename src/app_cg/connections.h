// State of the three store connections, and the subscriptions made when all of them are up.
#ifndef APP_CG_CONNECTIONS_H
#define APP_CG_CONNECTIONS_H

#include <cstdint>

struct app_cg_db_state_t {
    int32_t db;
    int32_t state; // 0 not connected, 1 connected
};

// In the order 1, 28, 33.
extern app_cg_db_state_t app_cg_db_state[3];

// Notes a database's state; a number that is in no row is ignored.
void app_cg_set_db_state(int32_t db, int32_t state);

// Returns 1 when every database is connected, else 0.
int32_t app_cg_is_all_db_connected();

// Install the callbacks for loss and return of a database's connection. Return 0, or the platform's error.
int32_t app_cg_client_set_disconnect_cb(int32_t db);
int32_t app_cg_client_set_reconnect_cb(int32_t db);

// A connection is up. `first` and `second` are the platform's and not used. Returns 0.
int32_t app_cg_client_connect_db(void *first, int32_t db, void *second);

// A connection was lost. Returns 0.
int32_t app_cg_disconnect_db(void *first, int32_t db);

// A connection changed. Returns 0 for type 2, a completed reconnection; any other type ends the process
// with status 77, because what the daemon believes of the store may no longer be true.
int32_t app_cg_reconnect_db(void *first, int32_t db, int32_t type);

// Rescans the check modules and subscribes to role, cards and, with a module, acknowledgements. A
// subscription that fails is tried again, and those after it are not made. Returns the result of the last
// call.
int32_t app_cg_deny_check_init();

// Does so once all databases are connected. Returns 0 whatever happened.
int32_t app_cg_db_validate();

#endif
