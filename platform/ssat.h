/*
 * Debug-command shell: commands that a running process offers to an operator.
 *
 * Part of the porting surface: C linkage, C11 and C++20, nothing of any library behind it.
 */
#ifndef SSAT_H
#define SSAT_H

#include <stdint.h>

#include "vx_thread.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * A command's handler, registered through a cast. It is called on the loop thread with as many int32_t
 * arguments as its template names, 0 to 8, and must be a function that takes exactly those and returns
 * int32_t; one that has nothing to report returns 0.
 */
typedef int32_t (*ssat_handler_f)(void);

/*
 * Opens the shell of the named module.
 *
 * Returns 0, or negative when the shell cannot be reached by anybody. May be called again after a failure.
 */
int32_t ssat_lib_init(vx_global_t *global, const char *module);

/*
 * Offers a command.
 *
 * module         the module's name, as given to ssat_lib_init().
 * command        the command's name; taken again, it takes the earlier one's place.
 * flags          must be 0.
 * args_template  "void", or blank-separated arguments of the form "name=%d", at most 8.
 * handler        see ssat_handler_f.
 * All texts are copied. Returns 0, or negative when an argument is not as described.
 */
int32_t ssat_reg_mod_cmd(const char *module, const char *command, int32_t flags, const char *args_template,
                         ssat_handler_f handler);

#ifdef __cplusplus
}
#endif

#endif
