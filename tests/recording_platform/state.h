// What the recording platform's files share: the journal, the scripts, and who is to be called back.
//
// One object that reset() replaces as a whole, so that nothing of one test can reach the next; statics in
// each file would have to be reset one by one.
#ifndef RECORDING_PLATFORM_STATE_H
#define RECORDING_PLATFORM_STATE_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "recording_platform.h"

// The context and the category are opaque to the daemon: their addresses are all that counts.
struct vx_global {
    char unused;
};

struct vx_zlog_category {
    char unused;
};

namespace recording
{

// A record of our own. Shared, because a script hands the same one out many times.
using Record = std::shared_ptr<ProtobufCMessage>;

// Copies a record by packing and unpacking it, so that no pointer of the copy leads into the original. Null
// for null.
Record copy_of(const ProtobufCMessage *record);

struct Timer {
    vx_thread_t event{};
    vx_thread_f callback = nullptr;
    std::chrono::microseconds due{};
    std::string name;
};

struct Subscription {
    vx_mom_pmsg_f callback = nullptr;
    void *arg = nullptr;
};

struct Connection {
    vx_mom_connect_f connect = nullptr;
    void *connect_arg = nullptr;
    vx_mom_disconnect_f disconnect = nullptr;
    vx_mom_reconnect_f reconnect = nullptr;
};

// A result lent out by vx_mom_hgetall_sync(), with the record that it points to.
struct LentResult {
    vx_mom_result_t result{};
    Record record;
};

struct Command {
    std::size_t argument_count = 0;
    ssat_handler_f handler = nullptr;
};

struct State {
    std::vector<std::string> journal;
    std::map<std::string, std::deque<int32_t>> results;
    std::map<std::string, int32_t> constant_results;
    std::map<std::string, std::deque<std::function<void()>>> actions;
    std::deque<std::pair<int32_t, Record>> hgetall_results;
    std::vector<std::pair<int32_t, Record>> scan_records; // command and record
    std::vector<std::unique_ptr<LentResult>> lent_results;
    std::map<std::string, Subscription> subscriptions; // by type name
    std::map<int32_t, Connection> connections;
    std::map<std::string, Command> commands;
    std::vector<std::unique_ptr<Timer>> timers; // armed, in arming order
    std::chrono::microseconds now{};
    int timers_armed = 0; // ever, for their names
    std::function<void()> run_action;
    LogCall last_log;
    std::vector<std::string> syslog_formats;
};

State &state();

// Writes a line into the journal.
void record_line(const std::string &line);

// The two halves of finish_call(), for a call whose result is part of its line.
int32_t take_result(const std::string &function);
void run_scripted_action(const std::string &function);

// Ends every recorded call: takes its scripted result (0 without a script), then runs its scripted action.
int32_t finish_call(const std::string &function);

// " context=wrong" when the context is not ours, else nothing.
std::string context_suffix(const vx_global_t *global);

// " name=set" when the condition holds, else nothing.
std::string set_suffix(const char *name, bool is_set);

// A text that may be null.
std::string printable(const char *text);

} // namespace recording

#endif
