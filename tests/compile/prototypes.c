/*
 * The porting surface, typed a second time.
 *
 * Somebody's platform was compiled against these declarations, and C links by name alone: a changed type or a
 * changed order of arguments would be found by nobody but here. A declaration that differs from the header's
 * does not compile.
 */
#include <stddef.h>

#include "ham.h"
#include "ssat.h"
#include "vx_mom.h"
#include "vx_mom_schema.h"
#include "vx_thread.h"
#include "vx_zlog.h"

/* NOLINTBEGIN(readability-redundant-declaration): said twice, they have to agree */
/* vx_thread.h */
typedef int32_t expected_thread_f(vx_thread_t *t);
_Static_assert(_Generic((vx_thread_f)0, expected_thread_f * : 1, default : 0), "vx_thread_f");
_Static_assert(_Generic(((vx_thread_t *)0)->arg, void * : 1, default : 0), "vx_thread_t.arg");
vx_global_t *vx_global_init(const char *module, void *reserved);
int32_t vx_global_run(vx_global_t *global);
void vx_global_finish(vx_global_t *global);
vx_thread_t *vx_thread_add_timer_timeval(vx_global_t *global, vx_thread_f f, void *arg,
                                         struct timeval timeout);
void vx_thread_cancel(vx_thread_t *t);

/* vx_mom.h */
_Static_assert(VX_MOM_CMD_SCANNED == 1 && VX_MOM_CMD_DELETED == 3 && VX_MOM_CMD_SET == 4 &&
                   VX_MOM_CMD_HMSET == 6 && VX_MOM_CMD_SUBSCRIBED == 29,
               "commands");
_Static_assert(_Generic(((vx_mom_result_t *)0)->error_code, int32_t : 1, default : 0), "error_code");
_Static_assert(_Generic(((vx_mom_result_t *)0)->record, ProtobufCMessage * : 1, default : 0), "record");
_Static_assert(offsetof(vx_mom_result_t, error_code) == 0, "error_code comes first");
_Static_assert(_Generic(((vx_mom_pmsg_t *)0)->cmd, int32_t : 1, default : 0), "cmd");
_Static_assert(offsetof(vx_mom_pmsg_t, cmd) == 0, "cmd comes first");
_Static_assert(offsetof(vx_mom_pmsg_t, record) == offsetof(vx_mom_pmsg_t, result), "a union");
_Static_assert(_Generic(((vx_mom_pmsg_t *)0)->record, ProtobufCMessage * : 1, default : 0), "record");
_Static_assert(_Generic(((vx_mom_pmsg_t *)0)->result, vx_mom_result_t * : 1, default : 0), "result");
typedef int32_t expected_pmsg_f(void *arg, vx_mom_pmsg_t *pmsg);
typedef int32_t expected_connect_f(void *first, void *second);
typedef int32_t expected_disconnect_f(void *first, int32_t db);
typedef int32_t expected_reconnect_f(void *first, int32_t db, int32_t type);
typedef void expected_done_f(void *arg, int32_t rv);
_Static_assert(_Generic((vx_mom_pmsg_f)0, expected_pmsg_f * : 1, default : 0), "vx_mom_pmsg_f");
_Static_assert(_Generic((vx_mom_connect_f)0, expected_connect_f * : 1, default : 0), "vx_mom_connect_f");
_Static_assert(_Generic((vx_mom_disconnect_f)0, expected_disconnect_f * : 1, default : 0), "disconnect");
_Static_assert(_Generic((vx_mom_reconnect_f)0, expected_reconnect_f * : 1, default : 0), "reconnect");
_Static_assert(_Generic((vx_mom_done_f)0, expected_done_f * : 1, default : 0), "vx_mom_done_f");
int32_t vx_mom_client_connect_sync(vx_global_t *global, int32_t db);
int32_t vx_mom_client_connect(vx_global_t *global, int32_t db, vx_mom_connect_f callback, void *arg);
int32_t vx_mom_client_set_disconnect_cb(vx_global_t *global, int32_t db, vx_mom_disconnect_f callback,
                                        void *arg);
int32_t vx_mom_client_set_reconnect_cb(vx_global_t *global, int32_t db, vx_mom_reconnect_f callback,
                                       void *arg);
int32_t vx_mom_subscribe(vx_global_t *global, int32_t db, const ProtobufCMessage *pattern, int32_t flags,
                         vx_mom_pmsg_f callback, void *arg);
int32_t vx_mom_scan_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *pattern, int32_t flags,
                         vx_mom_pmsg_f callback, void *arg);
int32_t vx_mom_set(vx_global_t *global, int32_t db, const ProtobufCMessage *record, vx_mom_done_f done,
                   void *arg);
int32_t vx_mom_set_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *record);
int32_t vx_mom_hmset(vx_global_t *global, int32_t db, const ProtobufCMessage *record, const int32_t *fields,
                     int32_t count, vx_mom_done_f done, void *arg);
int32_t vx_mom_del(vx_global_t *global, int32_t db, const ProtobufCMessage *record, vx_mom_done_f done,
                   void *arg);
int32_t vx_mom_pdel(vx_global_t *global, int32_t db, const ProtobufCMessage *record, int32_t key_count,
                    vx_mom_done_f done, void *arg);
int32_t vx_mom_exists_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *record);
vx_mom_result_t *vx_mom_hgetall_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *record);
void vx_mom_hash_res_free(vx_mom_result_t *result);

/* vx_zlog.h */
vx_zlog_category_t *vx_zlog_init(const char *module);
void vxcg_zlog(vx_zlog_category_t *category, const char *file, size_t file_len, const char *func,
               size_t func_len, long line, int32_t level, const char *format, ...);
int32_t at_snprintf(char *buffer, size_t size, const char *format, ...);
int32_t printk_syslog_ext(int32_t severity, const char *program, const char *module, int32_t flag,
                          const char *format, ...);

/* ssat.h */
typedef int32_t expected_handler_f(void);
_Static_assert(_Generic((ssat_handler_f)0, expected_handler_f * : 1, default : 0), "ssat_handler_f");
int32_t ssat_lib_init(vx_global_t *global, const char *module);
int32_t ssat_reg_mod_cmd(const char *module, const char *command, int32_t flags, const char *args_template,
                         ssat_handler_f handler);

/* ham.h */
int32_t reg_process_exit_action(int32_t first, int32_t action);
int32_t vx_initframe_duplicate_check(void);

/* vx_mom_schema.h */
int32_t vx_mom_key_attribute(const ProtobufCMessageDescriptor *message, uint32_t field_number);
/* NOLINTEND(readability-redundant-declaration) */
