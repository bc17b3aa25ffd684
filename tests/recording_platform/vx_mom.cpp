// The object-store client: answers as scripted, and keeps the callbacks that a test then calls.
//
// It stores nothing. A small store in memory was the alternative, but then a test could not tell a call that
// was made from one that had no effect.
#include "vx_mom.h"

#include <algorithm>

#include "state.h"

namespace recording
{

namespace
{

std::string database_call(const std::string &function, int32_t db)
{
    return function + "(" + std::to_string(db);
}

std::string record_call(const std::string &function, int32_t db, const ProtobufCMessage *record)
{
    return database_call(function, db) + ", " + text_of(record);
}

std::string write_suffix(const vx_global_t *global, vx_mom_done_f done, const void *arg)
{
    return set_suffix("done", done != nullptr) + set_suffix("arg", arg != nullptr) + context_suffix(global);
}

// Flags, callback and argument of a subscription or scan.
std::string notify_suffix(const vx_global_t *global, int32_t flags, vx_mom_pmsg_f callback, const void *arg)
{
    return (flags == 0 ? "" : " flags=" + std::to_string(flags)) +
           (callback == nullptr ? " callback=null" : "") + set_suffix("arg", arg != nullptr) +
           context_suffix(global);
}

template <typename Callback>
std::string connection_suffix(const vx_global_t *global, Callback callback, const void *arg)
{
    return (callback == nullptr ? " callback=null" : "") + set_suffix("arg", arg != nullptr) +
           context_suffix(global);
}

int32_t finish_write(const std::string &function, vx_mom_done_f done, void *arg)
{
    const int32_t result = finish_call(function);
    if (done != nullptr) {
        done(arg, result);
    }
    return result;
}

// Commands 4 and 6 carry a result, 1 and 3 a record, the others nothing.
void notify(const Subscription &to, int32_t cmd, const ProtobufCMessage *record)
{
    const Record copy = copy_of(record);
    vx_mom_result_t result{0, copy.get()};
    vx_mom_pmsg_t pmsg{};
    pmsg.cmd = cmd;
    if (cmd == VX_MOM_CMD_SET || cmd == VX_MOM_CMD_HMSET) {
        pmsg.result = &result;
    } else if (cmd == VX_MOM_CMD_SCANNED || cmd == VX_MOM_CMD_DELETED) {
        pmsg.record = copy.get();
    }
    (void)to.callback(to.arg, &pmsg);
}

// By value: the callback may subscribe anew.
bool find_subscription(const std::string &type_name, Subscription &found)
{
    const auto at = state().subscriptions.find(type_name);
    if (at == state().subscriptions.end() || at->second.callback == nullptr) {
        return false;
    }
    found = at->second;
    return true;
}

bool deliver_result(const std::string &type_name, int32_t cmd, vx_mom_result_t *result)
{
    Subscription to;
    if (!find_subscription(type_name, to)) {
        return false;
    }
    vx_mom_pmsg_t pmsg{};
    pmsg.cmd = cmd;
    pmsg.result = result;
    (void)to.callback(to.arg, &pmsg);
    return true;
}

} // namespace

void script_hgetall(int32_t error_code, const ProtobufCMessage *record)
{
    state().hgetall_results.emplace_back(error_code, copy_of(record));
}

void script_scan(const ProtobufCMessage *record, int32_t cmd)
{
    state().scan_records.emplace_back(cmd, copy_of(record));
}

bool deliver_written(const ProtobufCMessage *record, int32_t cmd)
{
    Subscription to;
    if (!find_subscription(record->descriptor->name, to)) {
        return false;
    }
    notify(to, cmd, record);
    return true;
}

bool deliver_deleted(const ProtobufCMessage *record)
{
    return deliver_written(record, VX_MOM_CMD_DELETED);
}

bool deliver_subscribed(const std::string &type_name)
{
    return deliver_result(type_name, VX_MOM_CMD_SUBSCRIBED, nullptr);
}

bool deliver_failed(const std::string &type_name, int32_t error_code, int32_t cmd)
{
    vx_mom_result_t result{error_code, nullptr};
    return deliver_result(type_name, cmd, &result);
}

bool deliver_nothing(const std::string &type_name, int32_t cmd)
{
    return deliver_result(type_name, cmd, nullptr);
}

bool connect(int32_t db)
{
    const Connection connection = state().connections[db];
    if (connection.connect == nullptr) {
        return false;
    }
    (void)connection.connect(context(), connection.connect_arg);
    return true;
}

bool disconnect(int32_t db)
{
    const Connection connection = state().connections[db];
    if (connection.disconnect == nullptr) {
        return false;
    }
    (void)connection.disconnect(context(), db);
    return true;
}

bool reconnect(int32_t db, int32_t type)
{
    const Connection connection = state().connections[db];
    if (connection.reconnect == nullptr) {
        return false;
    }
    (void)connection.reconnect(context(), db, type);
    return true;
}

std::size_t unfreed_results()
{
    return state().lent_results.size();
}

} // namespace recording

using namespace recording;

int32_t vx_mom_client_connect_sync(vx_global_t *global, int32_t db)
{
    record_line(database_call("vx_mom_client_connect_sync", db) + ")" + context_suffix(global));
    return finish_call("vx_mom_client_connect_sync");
}

int32_t vx_mom_client_connect(vx_global_t *global, int32_t db, vx_mom_connect_f callback, void *arg)
{
    record_line(database_call("vx_mom_client_connect", db) + ")" + connection_suffix(global, callback, arg));
    const int32_t result = finish_call("vx_mom_client_connect");
    if (result == 0) {
        state().connections[db].connect = callback;
        state().connections[db].connect_arg = arg;
    }
    return result;
}

int32_t vx_mom_client_set_disconnect_cb(vx_global_t *global, int32_t db, vx_mom_disconnect_f callback,
                                        void *arg)
{
    record_line(database_call("vx_mom_client_set_disconnect_cb", db) + ")" +
                connection_suffix(global, callback, arg));
    const int32_t result = finish_call("vx_mom_client_set_disconnect_cb");
    if (result == 0) {
        state().connections[db].disconnect = callback;
    }
    return result;
}

int32_t vx_mom_client_set_reconnect_cb(vx_global_t *global, int32_t db, vx_mom_reconnect_f callback,
                                       void *arg)
{
    record_line(database_call("vx_mom_client_set_reconnect_cb", db) + ")" +
                connection_suffix(global, callback, arg));
    const int32_t result = finish_call("vx_mom_client_set_reconnect_cb");
    if (result == 0) {
        state().connections[db].reconnect = callback;
    }
    return result;
}

int32_t vx_mom_subscribe(vx_global_t *global, int32_t db, const ProtobufCMessage *pattern, int32_t flags,
                         vx_mom_pmsg_f callback, void *arg)
{
    record_line(record_call("vx_mom_subscribe", db, pattern) + ")" +
                notify_suffix(global, flags, callback, arg));
    const int32_t result = finish_call("vx_mom_subscribe");
    if (result == 0 && pattern != nullptr) {
        state().subscriptions[pattern->descriptor->name] = {callback, arg};
    }
    return result;
}

int32_t vx_mom_scan_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *pattern, int32_t flags,
                         vx_mom_pmsg_f callback, void *arg)
{
    record_line(record_call("vx_mom_scan_sync", db, pattern) + ")" +
                notify_suffix(global, flags, callback, arg));
    const int32_t result = take_result("vx_mom_scan_sync");
    const auto records = state().scan_records; // a copy: a callback may script more
    for (const auto &[cmd, record] : records) {
        if (pattern != nullptr && callback != nullptr && record->descriptor == pattern->descriptor) {
            notify({callback, arg}, cmd, record.get());
        }
    }
    run_scripted_action("vx_mom_scan_sync");
    return result;
}

int32_t vx_mom_set(vx_global_t *global, int32_t db, const ProtobufCMessage *record, vx_mom_done_f done,
                   void *arg)
{
    record_line(record_call("vx_mom_set", db, record) + ")" + write_suffix(global, done, arg));
    return finish_write("vx_mom_set", done, arg);
}

int32_t vx_mom_set_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *record)
{
    record_line(record_call("vx_mom_set_sync", db, record) + ")" + context_suffix(global));
    return finish_call("vx_mom_set_sync");
}

int32_t vx_mom_hmset(vx_global_t *global, int32_t db, const ProtobufCMessage *record, const int32_t *fields,
                     int32_t count, vx_mom_done_f done, void *arg)
{
    std::string list;
    for (int32_t i = 0; i < count; i++) {
        list += (i == 0 ? "" : " ") + std::to_string(fields[i]);
    }
    record_line(record_call("vx_mom_hmset", db, record) + ", [" + list + "])" +
                write_suffix(global, done, arg));
    return finish_write("vx_mom_hmset", done, arg);
}

int32_t vx_mom_del(vx_global_t *global, int32_t db, const ProtobufCMessage *record, vx_mom_done_f done,
                   void *arg)
{
    record_line(record_call("vx_mom_del", db, record) + ")" + write_suffix(global, done, arg));
    return finish_write("vx_mom_del", done, arg);
}

int32_t vx_mom_pdel(vx_global_t *global, int32_t db, const ProtobufCMessage *record, int32_t key_count,
                    vx_mom_done_f done, void *arg)
{
    record_line(record_call("vx_mom_pdel", db, record) + ", " + std::to_string(key_count) + ")" +
                write_suffix(global, done, arg));
    return finish_write("vx_mom_pdel", done, arg);
}

int32_t vx_mom_exists_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *record)
{
    record_line(record_call("vx_mom_exists_sync", db, record) + ")" + context_suffix(global));
    return finish_call("vx_mom_exists_sync");
}

vx_mom_result_t *vx_mom_hgetall_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *record)
{
    record_line(record_call("vx_mom_hgetall_sync", db, record) + ")" + context_suffix(global));
    if (finish_call("vx_mom_hgetall_sync") != 0) {
        return nullptr;
    }
    State &s = state();
    auto lent = std::make_unique<LentResult>();
    if (!s.hgetall_results.empty()) {
        lent->result.error_code = s.hgetall_results.front().first;
        lent->record = s.hgetall_results.front().second;
        lent->result.record = lent->record.get();
        s.hgetall_results.pop_front();
    }
    s.lent_results.push_back(std::move(lent));
    return &s.lent_results.back()->result;
}

void vx_mom_hash_res_free(vx_mom_result_t *result)
{
    std::vector<std::unique_ptr<LentResult>> &lent = state().lent_results;
    const auto found =
        std::find_if(lent.begin(), lent.end(),
                     [result](const std::unique_ptr<LentResult> &one) { return &one->result == result; });
    std::string suffix;
    if (result == nullptr) {
        suffix = " result=null";
    } else if (found == lent.end()) {
        suffix = " result=unknown";
    } else {
        lent.erase(found);
    }
    record_line("vx_mom_hash_res_free()" + suffix);
    (void)finish_call("vx_mom_hash_res_free");
}
