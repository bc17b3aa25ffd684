// The registry of check modules, read from a folder: every entry names one module.
#ifndef APP_CG_CHECK_MODULES_H
#define APP_CG_CHECK_MODULES_H

#include <cstdint>

#include "app_cg/app_cg.h"

// Replaces the registry by what the folder holds. Returns 0; -4 for a null argument, with the registry
// untouched; -11 when the folder cannot be opened, with the registry empty.
int32_t app_cg_deny_check_init_wait_obj(app_cg_wait_obj_t *registry, const char *path);

// Returns the index of the module with this name in the daemon's registry, or -1.
int32_t app_cg_wait_obj_lookup(const char *mod_name);

// Prints the registry to standard output. Returns 0.
int32_t app_cg_dump_wait_obj();

#endif
