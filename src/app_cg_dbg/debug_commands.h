// The debug commands: what an operator can ask of the running daemon.
#ifndef APP_CG_DBG_DEBUG_COMMANDS_H
#define APP_CG_DBG_DEBUG_COMMANDS_H

#include <cstdint>

#include "vx_thread.h"

// Opens the shell and registers the commands. Returns 0, or the shell's failure, with nothing registered.
int32_t app_cg_ssat_init(vx_global_t *global, const char *module);

// Prints the four start-up times. Returns 0.
int32_t app_cg_show_time();

// Prints the registry, the times and the node table. Returns the last one's result.
int32_t app_cg_dump_all();

// Forces or removes the custom status of a position. Returns the writer's result.
int32_t app_cg_dbg_update_dev(int32_t dev, int32_t slot, int32_t sslotid, int32_t compa, int32_t op);

#endif
