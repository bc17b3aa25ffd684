/*
 * Event loop and one-shot timers.
 *
 * Part of the porting surface: C linkage, C11 and C++20, nothing of any library behind it. One process
 * has one context and one loop thread; every callback runs on that thread, one at a time, and no
 * function here may be called from another thread. No exception may leave a callback.
 */
#ifndef VX_THREAD_H
#define VX_THREAD_H

#include <stdint.h>
#include <sys/time.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The platform context. Opaque; every operation of the platform takes it. */
typedef struct vx_global vx_global_t;

/*
 * A timer event. `arg` is what was given when arming. A platform may embed it in a larger structure, so
 * it is only ever handled by pointer. The handle belongs to the platform; it is dead once its callback
 * has been entered or it has been cancelled, and may not be used afterwards.
 */
typedef struct vx_thread {
    void *arg;
} vx_thread_t;

/*
 * A timer's callback. `t` has the argument; whether it is the handle that arming returned is the platform's
 * affair. The result is not used; return 0.
 */
typedef int32_t (*vx_thread_f)(vx_thread_t *t);

/*
 * Creates the platform context for the named module.
 *
 * module    the module's name; copied.
 * reserved  must be null.
 * Returns the context, owned by the caller until vx_global_finish(); null on failure.
 */
vx_global_t *vx_global_init(const char *module, void *reserved);

/*
 * Runs the event loop until SIGTERM or SIGINT asks it to end.
 *
 * Returns 0 when the loop was asked to end, negative when it could not run.
 */
int32_t vx_global_run(vx_global_t *global);

/* Releases the context with all that hangs on it. Handles and callbacks are dead afterwards. Accepts null. */
void vx_global_finish(vx_global_t *global);

/*
 * Arms a one-shot timer.
 *
 * f        called once on the loop thread when the time has passed.
 * arg      handed over as `arg` of the event; stays the caller's.
 * timeout  seconds and microseconds from now, on a clock that no change of date moves.
 * Returns the handle, or null when the timer could not be armed.
 */
vx_thread_t *vx_thread_add_timer_timeval(vx_global_t *global, vx_thread_f f, void *arg,
                                         struct timeval timeout);

/* Cancels a pending timer: its callback will not run. The handle is dead afterwards. */
void vx_thread_cancel(vx_thread_t *t);

#ifdef __cplusplus
}
#endif

#endif
