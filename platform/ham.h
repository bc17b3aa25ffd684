/*
 * Process manager, and the check that a program runs once.
 *
 * Part of the porting surface: C linkage, C11 and C++20, nothing of any library behind it.
 */
#ifndef HAM_H
#define HAM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Registers this process with the process manager, with the action to take when it exits.
 *
 * first   must be 0.
 * action  the manager's number for the action; the daemon passes 2.
 * Returns 0, also where no process manager runs; negative or positive when the manager refused.
 */
int32_t reg_process_exit_action(int32_t first, int32_t action);

/*
 * Makes sure that this program runs only once, from now until the process ends, however it ends.
 *
 * Returns 0 when this is the only instance, 1 when another one runs, negative when it cannot be told.
 */
int32_t vx_initframe_duplicate_check(void);

#ifdef __cplusplus
}
#endif

#endif
