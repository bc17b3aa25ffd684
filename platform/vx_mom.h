/*
 * Object-store client: numbered databases of protocol-buffer records.
 *
 * Part of the porting surface: C linkage, C11 and C++20, nothing of any library behind it.
 *
 * - A record's key is its field with key attribute 2 (see vx_mom_schema.h); a record type without such a
 *   field has one record only.
 * - A pattern is a record of the wanted type whose index is all zero (texts empty). It stands for every
 *   record of that type.
 * - Every call is made on the loop thread and returns when the store has answered, or with a negative
 *   result when it could not answer in time. A call may be made from inside any callback.
 * - Results: 0 success, negative failure, unless a function says otherwise. Deleting what is absent is
 *   success. A failure changes nothing in the store, unless the answer itself was lost.
 * - Records passed to a call belong to the caller and may die with the call's return. Notifications,
 *   records and results handed to a callback belong to the client and die with the callback's return.
 * - No exception may leave a callback.
 */
#ifndef VX_MOM_H
#define VX_MOM_H

#include <protobuf-c/protobuf-c.h>
#include <stdint.h>

#include "vx_thread.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What a notification is about. Other codes may come; a receiver ignores those that it does not know. */
enum vx_mom_cmd {
    VX_MOM_CMD_SCANNED = 1,    /* a record found by vx_mom_scan_sync() */
    VX_MOM_CMD_DELETED = 3,    /* a record was deleted */
    VX_MOM_CMD_SET = 4,        /* a whole record was written, or existed when the subscription began */
    VX_MOM_CMD_HMSET = 6,      /* some fields of a record were written */
    VX_MOM_CMD_SUBSCRIBED = 29 /* the subscription is in place; all existing records were delivered */
};

/* What the store answered: `record` is null when `error_code` is not 0, or when there is no such record. */
typedef struct vx_mom_result {
    int32_t error_code; /* 0, or a negative code of failure */
    ProtobufCMessage *record;
} vx_mom_result_t;

/* A notification. */
typedef struct vx_mom_pmsg {
    int32_t cmd; /* enum vx_mom_cmd */
    union {
        /* Commands 1 and 3: the record, for a deletion as it last was, sub-messages included. */
        ProtobufCMessage *record;
        /* Commands 4 and 6: the whole record as it now is, or an error. Null for any other command. */
        vx_mom_result_t *result;
    };
} vx_mom_pmsg_t;

/* Receives notifications of subscriptions and scans. `arg` as given. The result is not used. */
typedef int32_t (*vx_mom_pmsg_f)(void *arg, vx_mom_pmsg_t *pmsg);

/* An asynchronous connection is up. `first` is the platform context, `second` the `arg` given. */
typedef int32_t (*vx_mom_connect_f)(void *first, void *second);

/* The connection to database `db` was lost. `first` is the platform context. */
typedef int32_t (*vx_mom_disconnect_f)(void *first, int32_t db);

/*
 * The connection to database `db` is back. `first` is the platform context. `type` is 2 when the data set
 * is the one the client knew and no write was given up meanwhile; 1 when what is believed of the store
 * may be false.
 */
typedef int32_t (*vx_mom_reconnect_f)(void *first, int32_t db, int32_t type);

/* A write is complete, with the result that the call returns. Called before the call returns; may be null. */
typedef void (*vx_mom_done_f)(void *arg, int32_t rv);

/*
 * Connects to a database and waits for it.
 *
 * db  the database's number, 0 or more.
 * Returns 0 when the store answered on that database, negative otherwise.
 */
int32_t vx_mom_client_connect_sync(vx_global_t *global, int32_t db);

/*
 * Asks for a connection that notices loss and return, and that carries subscriptions.
 *
 * callback  called from the loop, once, when the connection is up for the first time.
 * arg       its second argument.
 * Returns 0 when the request was accepted, negative otherwise.
 */
int32_t vx_mom_client_connect(vx_global_t *global, int32_t db, vx_mom_connect_f callback, void *arg);

/* Installs the callback for the loss of a database's connection, in place of an earlier one. `arg` is
 * reserved: the callback does not receive it. Returns 0, or negative. */
int32_t vx_mom_client_set_disconnect_cb(vx_global_t *global, int32_t db, vx_mom_disconnect_f callback,
                                        void *arg);

/* Installs the callback for the return of a database's connection, in place of an earlier one. `arg` is
 * reserved: the callback does not receive it. Returns 0, or negative. */
int32_t vx_mom_client_set_reconnect_cb(vx_global_t *global, int32_t db, vx_mom_reconnect_f callback,
                                       void *arg);

/*
 * Subscribes to all records of the pattern's type: every existing record as command 4, then command 29,
 * then every change in the order of the changes, each once. Subscriptions are served in the order asked.
 * Subscribing again to the same type in the same database takes the place of the earlier subscription
 * and starts over; records that vanished meanwhile come first, as command 3.
 *
 * flags  must be 0.
 * Returns 0 when the request was accepted, negative otherwise.
 */
int32_t vx_mom_subscribe(vx_global_t *global, int32_t db, const ProtobufCMessage *pattern, int32_t flags,
                         vx_mom_pmsg_f callback, void *arg);

/*
 * Calls back with command 1 for every record of the pattern's type, before it returns. The callback may
 * make store calls. Its results do not end the scan.
 *
 * flags  must be 0.
 * Returns 0 when all records were delivered, negative when the store failed on the way.
 */
int32_t vx_mom_scan_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *pattern, int32_t flags,
                         vx_mom_pmsg_f callback, void *arg);

/* Writes a whole record, in place of an earlier one. `done` may be null. */
int32_t vx_mom_set(vx_global_t *global, int32_t db, const ProtobufCMessage *record, vx_mom_done_f done,
                   void *arg);

/* Writes a whole record, in place of an earlier one, and waits for the store's answer. */
int32_t vx_mom_set_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *record);

/*
 * Writes some fields of a record and leaves its others as they are.
 *
 * fields  the numbers of the fields to write.
 * count   how many; more than 0.
 * done    may be null.
 */
int32_t vx_mom_hmset(vx_global_t *global, int32_t db, const ProtobufCMessage *record, const int32_t *fields,
                     int32_t count, vx_mom_done_f done, void *arg);

/* Deletes the record with this record's key; only the key is looked at. `done` may be null. */
int32_t vx_mom_del(vx_global_t *global, int32_t db, const ProtobufCMessage *record, vx_mom_done_f done,
                   void *arg);

/*
 * Deletes every record whose first `key_count` key fields equal this record's; the others are open.
 *
 * key_count  0 (every record of the type) up to the number of key fields.
 * done       may be null.
 */
int32_t vx_mom_pdel(vx_global_t *global, int32_t db, const ProtobufCMessage *record, int32_t key_count,
                    vx_mom_done_f done, void *arg);

/* Returns 1 when a record with this record's key exists, 0 when none does, negative on failure. */
int32_t vx_mom_exists_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *record);

/*
 * Reads the whole record with this record's key.
 *
 * Returns a result that belongs to the caller until vx_mom_hash_res_free(): error code 0 and the record;
 * error code 0 and a null record when there is none; a negative error code when the store failed or the
 * record could not be decoded. Null when memory ran out.
 */
vx_mom_result_t *vx_mom_hgetall_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *record);

/* Frees a result of vx_mom_hgetall_sync(), record included. Accepts null. */
void vx_mom_hash_res_free(vx_mom_result_t *result);

#ifdef __cplusplus
}
#endif

#endif
