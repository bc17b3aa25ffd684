/*
 * app_cg_kit: everything that a check module needs besides the examination itself.
 *
 * A check module examines every line card and answers PASS or DENY. The kit subscribes to the requests, calls
 * a function of yours for each card, writes the answer once, and continues through restarts of the store and
 * of the daemon.
 *
 *     static int examine(void *arg, const app_cg_kit_card_t *card, app_cg_kit_check_t *check)
 *     {
 *         if (card->type < 300) {
 *             return APP_CG_KIT_PASS;
 *         }
 *         return app_cg_kit_deny(check, "types from 300 on are not supported here");
 *     }
 *
 * C11 and C++20; this header depends on no other one of the project. Texts are UTF-8.
 *
 * Threads: all callbacks are made on the thread that is in app_cg_kit_run(), one at a time; while one runs,
 * no other card is examined, so an examination that takes long should return APP_CG_KIT_LATER. Functions that
 * may be called from other threads are marked so. A C++ exception that leaves a callback is caught, logged,
 * and handled as APP_CG_KIT_AGAIN; one that leaves the log function is caught, and the line printed on
 * standard error.
 *
 * Functions return 0 or a negative enum app_cg_kit_error unless they say otherwise.
 */
#ifndef APP_CG_KIT_H
#define APP_CG_KIT_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The longest name and reason; the daemon cuts longer ones. In bytes, without the terminator. */
#define APP_CG_KIT_LONGEST_NAME 15
#define APP_CG_KIT_LONGEST_REASON 255

/* A module. */
typedef struct app_cg_kit_module app_cg_kit_t;

/* The examination of one card: from the daemon's request to the answer, or to the request's withdrawal. */
typedef struct app_cg_kit_check app_cg_kit_check_t;

/* The result of an examination. */
enum app_cg_kit_verdict {
    APP_CG_KIT_PASS = 0,  /* the card may start, as far as this module is concerned */
    APP_CG_KIT_DENY = 1,  /* the card is powered off; give a reason, see app_cg_kit_deny() */
    APP_CG_KIT_LATER = 2, /* app_cg_kit_answer() follows; after 300 seconds the card is admitted without it */
    APP_CG_KIT_AGAIN = 3  /* no verdict is possible now: call again in a second */
};

/* The errors. app_cg_kit_error_text() has a sentence for each; the log has the details. */
enum app_cg_kit_error {
    APP_CG_KIT_E_ARGUMENT = -1,  /* an argument is null or out of its range */
    APP_CG_KIT_E_NAME = -2,      /* the name is empty, longer than 15 bytes, or not possible for a file */
    APP_CG_KIT_E_TAKEN = -3,     /* another module of this account on this host has the name on this store */
    APP_CG_KIT_E_SETTINGS = -4,  /* the settings of the store cannot be used */
    APP_CG_KIT_E_MEMORY = -5,    /* memory ran out */
    APP_CG_KIT_E_SYSTEM = -6,    /* the operating system refused something */
    APP_CG_KIT_E_ANSWERED = -7,  /* the check has a verdict already; this one is dropped */
    APP_CG_KIT_E_WITHDRAWN = -8, /* the request was withdrawn; the verdict is dropped */
    APP_CG_KIT_E_STOPPED = -9    /* the module has ended */
};

/* The severity of a log line. */
enum app_cg_kit_level {
    APP_CG_KIT_ERROR = 3, /* the numbers are those of the system log */
    APP_CG_KIT_WARNING = 4,
    APP_CG_KIT_INFO = 6,
    APP_CG_KIT_DEBUG = 7
};

/* A card. Texts and bytes belong to the kit and are valid until the callback returns. Later versions may add
 * members at the end. */
typedef struct app_cg_kit_card {
    int32_t devid; /* its position */
    int32_t slotid;
    int32_t sslotid;
    int32_t type;      /* device type, as configured */
    int32_t node_type; /* 1 box, 2 main board, 3 line card, 4 sub card, 5 fabric, 6 and 7 service cards; 0
                          unknown */
    int32_t node_id;
    /* From the device manager's information about the card; 0 and null when there is none. */
    int has_info;
    int online;
    const char *name;
    const char *type_name;
    const uint8_t *serial; /* serial_size bytes */
    size_t serial_size;
} app_cg_kit_card_t;

/*
 * Examines a card.
 *
 * check  the examination; valid until the return, or longer when it is held, see app_cg_kit_hold().
 * Returns an enum app_cg_kit_verdict; anything else is handled as APP_CG_KIT_AGAIN.
 */
typedef int (*app_cg_kit_check_f)(void *arg, const app_cg_kit_card_t *card, app_cg_kit_check_t *check);

/* The verdict is no longer needed: the card left, another module denied it, or the 300 seconds are over; or
 * the slot has another card by now, which is examined in its turn. Called for open examinations, and in the
 * case of another card also for one whose verdict was given and is dropped. `check` is the handle that the
 * examination had. */
typedef void (*app_cg_kit_withdrawn_f)(void *arg, const app_cg_kit_card_t *card, app_cg_kit_check_t *check);

/* The device manager's information about a card was added, changed, or deleted (present 0; then as it last
 * was). For every card of the device, exempt ones too, and those that are there when the module starts.
 * `type`, `node_type` and `node_id` are those of the information. */
typedef void (*app_cg_kit_card_f)(void *arg, const app_cg_kit_card_t *card, int present);

/* One line of the log, without line break. level: enum app_cg_kit_level. Called on any thread that calls the
 * kit, and not any more once app_cg_kit_close() has returned. It must not call app_cg_kit_close(), which
 * waits for it. */
typedef void (*app_cg_kit_log_f)(void *arg, int level, const char *text);

/* app_cg_kit_options.flags */
enum app_cg_kit_flag {
    /* Leave SIGTERM, SIGINT and the service manager to the program; app_cg_kit_stop() ends the module. */
    APP_CG_KIT_NO_SIGNALS = 1
};

/* Fill it with app_cg_kit_options_init() first; then set what differs from the defaults. Copied by
 * app_cg_kit_open(). */
typedef struct app_cg_kit_options {
    size_t size;                      /* of this structure, for later versions of it */
    const char *name;                 /* the module's entry in /etc/app_cg/deny_check; must be set */
    app_cg_kit_check_f check;         /* must be set */
    app_cg_kit_withdrawn_f withdrawn; /* or null */
    app_cg_kit_card_f card;           /* or null */
    app_cg_kit_log_f log;             /* or null: lines on standard error, "NAME: warning: ..." */
    void *arg;                        /* first argument of the callbacks */
    int log_level;                    /* less severe lines are not logged; default APP_CG_KIT_INFO */
    unsigned flags;                   /* enum app_cg_kit_flag */
    const char *endpoint; /* the store of database 1, in the form of VX_MOM_ENDPOINT; default: the setting
                             VX_MOM_ENDPOINT_1, else VX_MOM_ENDPOINT */
    const char *module_folder; /* default /etc/app_cg/deny_check; a warning when it lacks the name; "": not
                                  read */
    const char *lock_folder;   /* default /run/lock; of the lock on the name; "": no lock */
} app_cg_kit_options_t;

/* Writes the defaults into a structure of `size` bytes, and not beyond: a program may be older than the
 * library, and its structure shorter. Accepts null. */
void app_cg_kit_options_init_size(app_cg_kit_options_t *options, size_t size);

/* Writes the defaults. Accepts null. */
static inline void app_cg_kit_options_init(app_cg_kit_options_t *options)
{
    app_cg_kit_options_init_size(options, sizeof *options);
}

/*
 * Makes a module. A process may have several, each served by a thread of its own; all but one need
 * APP_CG_KIT_NO_SIGNALS, since signals and the service manager are the process'. From any thread.
 *
 * kit  receives the module, the caller's until app_cg_kit_close(); untouched on failure.
 * Returns 0; APP_CG_KIT_E_ARGUMENT, _NAME, _TAKEN, _SETTINGS, _MEMORY, _SYSTEM. The store need not be running
 * yet.
 */
int app_cg_kit_open(const app_cg_kit_options_t *options, app_cg_kit_t **kit);

/*
 * Serves until SIGTERM, SIGINT or app_cg_kit_stop(). It notifies a service manager when it is ready,
 * and sends it heartbeats (Type=notify, WatchdogSec).
 *
 * Returns 0 when asked to end; APP_CG_KIT_E_STOPPED when it served before; APP_CG_KIT_E_SYSTEM when it could
 * not run.
 */
int app_cg_kit_run(app_cg_kit_t *kit);

/* Ends app_cg_kit_run(), or has it return as soon as it is called. From any thread, and in a signal handler.
 * Open examinations stay unanswered; the module is asked about them again when it is started again. */
int app_cg_kit_stop(app_cg_kit_t *kit);

/* Frees a module that is not in app_cg_kit_run(). Held handles stay valid. Waits for log functions that other
 * threads are in; no function of the module is called afterwards. Accepts null. */
void app_cg_kit_close(app_cg_kit_t *kit);

/*
 * Gives the verdict of an examination; from any thread, also within the callback. The module's loop writes
 * it, again and again until the store accepts it.
 *
 * verdict  APP_CG_KIT_PASS or APP_CG_KIT_DENY.
 * reason   of a DENY, for the operator: at most 255 bytes, longer ones are cut at a character. Null or empty
 *          logs a warning, and the operator reads "NAME not compatible". Not used for PASS.
 * Returns 0 when the verdict was accepted; APP_CG_KIT_E_ANSWERED, APP_CG_KIT_E_WITHDRAWN or
 * APP_CG_KIT_E_STOPPED when it was dropped; APP_CG_KIT_E_ARGUMENT, _MEMORY.
 */
int app_cg_kit_answer(app_cg_kit_check_t *check, int verdict, const char *reason);

/* For a callback's return statement: stores the reason and returns APP_CG_KIT_DENY. */
int app_cg_kit_deny(app_cg_kit_check_t *check, const char *reason);

/* Keeps a handle beyond the callback's return; any number of times. Returns the handle. From any thread.
 * Accepts null. */
app_cg_kit_check_t *app_cg_kit_hold(app_cg_kit_check_t *check);

/* Releases a held handle, once for each app_cg_kit_hold(). Releasing the last one of an examination without a
 * verdict logs a warning, since nobody can answer any more. From any thread. Accepts null. */
void app_cg_kit_release(app_cg_kit_check_t *check);

/* Whether the verdict is still needed: 1, or 0. From any thread. */
int app_cg_kit_is_open(app_cg_kit_check_t *check);

/* A sentence for a result of these functions, 0 included. Static. */
const char *app_cg_kit_error_text(int error);

/* The library's version, "0.1.0". Static. */
const char *app_cg_kit_version(void);

#ifdef __cplusplus
}
#endif

#endif
