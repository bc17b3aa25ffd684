// Start-up in its fixed order, between `main` and the event loop.
#ifndef APP_CG_STARTUP_H
#define APP_CG_STARTUP_H

#include <cstdint>

// Brings up everything that needs the platform context: debug commands, process manager, the store
// connections and their callbacks. Returns 0, or the first result that is not.
int32_t app_cg_init();

// Debug commands and process manager. Returns 0, or the process manager's refusal.
int32_t app_cg_indep_init();

// Connection callbacks of databases 1, 33 and 28: `first` and `second` are the platform's. Return 0.
int32_t app_cg_connect_host_cb(void *first, void *second);
int32_t app_cg_connect_dev_cb(void *first, void *second);
int32_t app_cg_connect_cap_cb(void *first, void *second);

#endif
