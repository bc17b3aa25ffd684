// The recording platform: the symbols of platform/ for tests. It keeps a journal of everything that the
// daemon does to its platform, answers as scripted, and has a clock that only moves when told.
//
// Everything the daemon does is one line of the journal, in the order in which it happened, so that a test
// compares a whole sequence with EXPECT_EQ and a failure shows both. The lines:
//
//   vx_mom_set(1, p_libpub.app_cg_mom_deny_check_result{index={card_tipc_nodeid=7} stat=APP_CG_CHECK_PASS})
//   vx_mom_hmset(28, <record>, [6 7 8])        vx_mom_pdel(1, <record>, 3)
//   vx_mom_del(1, <record>)                    vx_mom_set_sync(33, <record>)
//   vx_mom_exists_sync(1, <record>)            vx_mom_hgetall_sync(1, <record>)   vx_mom_hash_res_free()
//   vx_mom_scan_sync(1, <record>)              vx_mom_subscribe(1, <record>)
//   vx_mom_client_connect_sync(1)              vx_mom_client_connect(1)
//   vx_mom_client_set_disconnect_cb(1)         vx_mom_client_set_reconnect_cb(1)
//   vx_thread_add_timer(300.000000) = t1       vx_thread_cancel(t1)        timer t1 fires
//   vx_global_init(app_cg)   vx_global_run()   vx_global_finish()
//   vx_zlog_init(app_cg)     vx_initframe_duplicate_check()   reg_process_exit_action(0, 2)
//   ssat_lib_init(app_cg)    ssat_reg_mod_cmd(app_cg, log-level, 0, "level=%d")
//   log 100 app_cg.cpp app_cg_init: text       (level, source, function, text as passed)
//   syslog 4 APP_CG CG_MNG 1: text
//
// A <record> is its type name and, in braces, every field that is not at its default in the order of the
// field numbers: numbers and booleans (true) plain, enumerations by name (by number when there is none),
// texts in double quotes, bytes as hexadecimal digits, sub-messages in braces even when empty. A line whose
// arguments are not the usual ones (flags, callback argument or completion not 0, a context that is not
// the platform's) says so in a suffix, e.g. " flags=1", " arg=set", " done=set", " context=wrong",
// " callback=null", " result=null", " reserved=set", " category=wrong", " format=%d".
//
// A timer's callback is given an event that is not the handle, and is gone when it returns. A handle is freed
// when its timer fires, a cancelled one at once. Cancelling anything but an armed timer is
// "vx_thread_cancel(unknown)". A refused timer is "vx_thread_add_timer(300.000000) = null", an absent record
// "null".
//
// Three environment variables serve programs that are tested from outside:
//   RECORDING_PLATFORM_JOURNAL  a file to which every line is appended as it happens; line ends and
//                               backslashes within it are written as escapes;
//   RECORDING_PLATFORM_SCRIPT   scripted results, as "vx_mom_del=-5;vx_mom_set=1,2": one number is returned
//                               always, several are returned in turn;
//   RECORDING_PLATFORM_EVENTS   what happens while the loop runs, as "connect 1;disconnect 28;reconnect 33
//   2".
#ifndef RECORDING_PLATFORM_H
#define RECORDING_PLATFORM_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ssat.h"
#include "vx_mom.h"
#include "vx_thread.h"
#include "vx_zlog.h"

namespace recording
{

// Forgets everything: journal, scripts, subscriptions, timers, callbacks; the clock goes back to 0.
void reset();

// The journal since the last reset() or take().
const std::vector<std::string> &journal();

// Returns the journal and empties it.
std::vector<std::string> take();

// Adds a line of the test's own to the journal, e.g. text that was printed.
void note(const std::string &line);

// The next calls of `function` (e.g. "vx_mom_del") return these results, one each; then 0 again, or for
// functions that return a pointer, a good one. For those a result other than 0 means null. For
// vx_mom_exists_sync the result is the answer (default 0).
void script(const std::string &function, std::vector<int32_t> results);

// Every call of `function` from now on returns this result, until reset().
void script_always(const std::string &function, int32_t result);

// Calls `action` from inside the next call of `function`, after it was recorded and before it returns.
void script_action(const std::string &function, std::function<void()> action);

// What the next vx_mom_hgetall_sync() calls return, one each: a result with this error code and a copy of
// this record (may be null). Without a script: error code 0 and no record. script() with a result other
// than 0 makes the call return null.
void script_hgetall(int32_t error_code, const ProtobufCMessage *record);

// The records that vx_mom_scan_sync() delivers for their type, with this command, on every scan until
// reset(). Copies are kept. A scripted failure delivers them all the same before it returns.
void script_scan(const ProtobufCMessage *record, int32_t cmd = VX_MOM_CMD_SCANNED);

// Delivers a notification to the subscription of the record's type; false when there is none.
bool deliver_written(const ProtobufCMessage *record, int32_t cmd = VX_MOM_CMD_SET);
bool deliver_deleted(const ProtobufCMessage *record);
bool deliver_subscribed(const std::string &type_name);

// Runs the connection callbacks that the daemon registered; false when there is none for the database.
bool connect(int32_t db);
bool disconnect(int32_t db);
bool reconnect(int32_t db, int32_t type);

// Virtual time. advance() steps from due timer to due timer, ties in arming order, so that each callback
// sees the time that it would.
std::chrono::microseconds now();
void advance(std::chrono::microseconds by);

// The timers now armed, as named in the journal ("t1"), in arming order, and the argument of one.
std::vector<std::string> armed_timers();
void *timer_argument(const std::string &name);

// Runs a registered debug command with these arguments; false when there is none. `result` may be null.
bool run_command(const std::string &command, const std::vector<int32_t> &arguments, int32_t *result);

// What vx_global_run() does before it returns; nothing by default.
void on_run(std::function<void()> action);

// A record as the journal shows it.
std::string text_of(const ProtobufCMessage *record);

// The context and the log category that the platform hands out, for tests that skip the start-up.
vx_global_t *context();
vx_zlog_category_t *category();

// The last log record, with what its journal line leaves out. Line 0 when there was none.
struct LogCall {
    std::string file; // as many characters as the call said
    std::string function;
    long line = 0;
    int32_t level = 0;
    std::string format;
    std::string text;
};
const LogCall &last_log();

// The formats of the system-log lines since the last reset(), which their journal lines leave out: a text
// reads the same whether its values were the format's or pasted into it.
const std::vector<std::string> &syslog_formats();

// As deliver_written(), with a result that carries this error code and no record, or with no result at
// all; false when nobody subscribed to the type.
bool deliver_failed(const std::string &type_name, int32_t error_code, int32_t cmd = VX_MOM_CMD_SET);
bool deliver_nothing(const std::string &type_name, int32_t cmd = VX_MOM_CMD_SET);

// Results of vx_mom_hgetall_sync() that were not freed.
std::size_t unfreed_results();

} // namespace recording

#endif
