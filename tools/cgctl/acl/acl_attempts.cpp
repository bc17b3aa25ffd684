// The tables of attempts.
//
// They are made from the record types and what is done with each, and not from the rules that are to be
// checked: a slip in the rules would else be repeated here.
#include "acl/acl_attempts.h"

#include <algorithm>

#include "records/databases.h"
#include "records/record_types.h"
#include "store/codec/names.h"
#include "store/functions.h"

namespace cg
{

namespace
{

constexpr const char *answer_type = "p_libpub.app_cg_card_check_ack";

void append(AclAttempts &attempts, const AclAttempts &more)
{
    attempts.insert(attempts.end(), more.begin(), more.end());
}

// The key of some record of a type.
std::string sample_key(const RecordType &type)
{
    std::string key = type.name();
    for (unsigned i = 0; type.index != nullptr && i < type.key()->n_fields; i++) {
        const bool is_text = type.key()->fields[i].type == PROTOBUF_C_TYPE_STRING;
        key += is_text ? ":somebody" : ":1";
    }
    return key;
}

std::string answer_key(const std::string &part)
{
    return std::string(answer_type) + ":0:1:3:" + part;
}

std::string channel(const RecordType &type, const std::string &key)
{
    return store::channel_prefix(type.db) + key;
}

std::vector<std::string> call(const char *function, const RecordType &type, const std::string &key)
{
    return {"FCALL",
            function,
            "3",
            key,
            store::counter_key(type.name()),
            store::index_key(type.name()),
            store::channel_prefix(type.db)};
}

// What set and hmset come to on the server.
AclAttempts writing(const RecordType &type, const std::string &key)
{
    const std::string counter = store::counter_key(type.name());
    const std::string index = store::index_key(type.name());
    return {call(store::set_function, type, key),
            call(store::hmset_function, type, key),
            {"HLEN", key},
            {"HGET", key, "by"},
            {"HGETALL", key},
            {"HSET", key, "6", "1"},
            {"HDEL", key, "6"},
            {"DEL", key},
            {"GET", counter},
            {"INCR", counter},
            {"SADD", index, key},
            {"PUBLISH", channel(type, key), ""}};
}

// What del and pdel come to.
AclAttempts removing(const RecordType &type, const std::string &key)
{
    const std::string counter = store::counter_key(type.name());
    const std::string index = store::index_key(type.name());
    return {call(store::del_function, type, key),
            {"FCALL", store::pdel_function, "2", counter, index, store::channel_prefix(type.db), key},
            {"HLEN", key},
            {"HGETALL", key},
            {"DEL", key},
            {"GET", counter},
            {"INCR", counter},
            {"SREM", index, key},
            {"SMEMBERS", index},
            {"SISMEMBER", index, key},
            {"PUBLISH", channel(type, key), ""}};
}

AclAttempts reading(const RecordType &type)
{
    const std::string key = sample_key(type);
    return {{"HGETALL", key},
            {"HLEN", key},
            {"GET", store::counter_key(type.name())},
            {"SSCAN", store::index_key(type.name()), "0"}};
}

std::vector<std::string> watching(const RecordType &type)
{
    if (type.index == nullptr) {
        return {"SUBSCRIBE", channel(type, type.name())};
    }
    return {"PSUBSCRIBE", channel(type, std::string(type.name()) + ":*")};
}

AclAttempts connecting()
{
    return {{"PING"},
            {"SELECT", "1"},
            {"CLIENT", "SETNAME", "check"},
            {"INFO", "server"},
            {"GET", store::data_set_key},
            {"HGETALL", store::runs_key}};
}

AclAttempts read_and_watched(const std::vector<std::string> &types)
{
    AclAttempts attempts = connecting();
    for (const std::string &type : types) {
        append(attempts, reading(record_type(type)));
        attempts.push_back(watching(record_type(type)));
    }
    return attempts;
}

// Changes to a record of a type, and to what the store keeps about the type, past the functions and through
// them.
AclAttempts forging_record(const RecordType &type, const std::string &key)
{
    return {call(store::set_function, type, key),
            call(store::hmset_function, type, key),
            call(store::del_function, type, key),
            {"HSET", key, "6", "1"},
            {"HDEL", key, "6"},
            {"DEL", key},
            {"UNLINK", key},
            {"SET", key, "x"},
            {"EXPIRE", key, "1"},
            {"RENAME", key, key + "1"},
            {"RESTORE", key, "0", "x", "REPLACE"},
            {"PUBLISH", channel(type, key), ""}};
}

// The same by commands that nobody needs.
AclAttempts forging_record_otherwise(const std::string &key)
{
    return {{"HINCRBY", key, "6", "1"},
            {"HSETNX", key, "6", "1"},
            {"HMSET", key, "6", "1"},
            {"APPEND", key, "x"},
            {"GETDEL", key}};
}

AclAttempts forging_books(const RecordType &type)
{
    const std::string counter = store::counter_key(type.name());
    const std::string index = store::index_key(type.name());
    return {{"SET", counter, "1"},      {"DEL", counter},
            {"INCRBY", counter, "7"},   {"DECR", counter},
            {"APPEND", counter, "0"},   {"RENAME", counter, counter + "1"},
            {"EXPIRE", counter, "1"},   {"DEL", index},
            {"SREM", index, "x"},       {"SPOP", index},
            {"EXPIRE", index, "1"},     {"RENAME", index, index + "1"},
            {"SMOVE", index, "x", "y"}, {"SETRANGE", counter, "0", "9"},
            {"GETSET", counter, "9"},   {"MSET", counter, "9"},
            {"GETDEL", counter}};
}

AclAttempts forging_data_set()
{
    return {{"SET", store::data_set_key, "x"},
            {"DEL", store::data_set_key},
            {"GETDEL", store::data_set_key},
            {"HSET", store::runs_key, "now", "1"},
            {"DEL", store::runs_key},
            {"HSET", store::health_key, "system_log_dropped", "1"},
            {"DEL", store::health_key},
            {"FCALL", store::register_function, "2", store::data_set_key, store::runs_key, "x", "y", "z"}};
}

// What nobody but the administrator does, whatever its keys are.
AclAttempts server_commands()
{
    return {{"ACL", "SETUSER", "somebody", "on"},
            {"ACL", "LIST"},
            {"ACL", "GETUSER", "default"},
            {"FAILOVER"},
            {"REPLICAOF", "NO", "ONE"},
            {"SLAVEOF", "NO", "ONE"},
            {"SYNC"},
            {"PSYNC", "?", "-1"},
            {"MODULE", "LOAD", "x.so"},
            {"EVAL_RO", "return 1", "0"},
            {"CLIENT", "LIST"},
            {"CONFIG", "SET", "maxmemory", "1"},
            {"CONFIG", "GET", "*"},
            {"CLIENT", "KILL", "TYPE", "normal"},
            {"CLIENT", "PAUSE", "1"},
            {"DEBUG", "SLEEP", "0"},
            {"EVAL", "return 1", "0"},
            {"EVALSHA", std::string(40, '0'), "0"},
            {"SCRIPT", "LOAD", "return 1"},
            {"SCRIPT", "FLUSH"},
            {"FUNCTION", "FLUSH"},
            {"FUNCTION", "DELETE", store::library_name},
            {"FUNCTION", "RESTORE", "x"},
            {"FLUSHALL"},
            {"FLUSHDB"},
            {"SWAPDB", "0", "1"},
            {"KEYS", "*"},
            {"MONITOR"},
            {"MOVE", "somebody", "2"},
            {"COPY", "somebody", "nobody"},
            {"MIGRATE", "host", "1", "somebody", "0", "1"},
            {"REPLICAOF", "host", "1"},
            {"SAVE"},
            {"SHUTDOWN"}};
}

AclAttempts forging_everything_but(const std::vector<std::string> &exempt)
{
    AclAttempts attempts;
    for (const RecordType &type : record_types()) {
        const bool is_exempt =
            std::find(exempt.begin(), exempt.end(), std::string(type.name())) != exempt.end();
        if (type.db >= 0 && !is_exempt) {
            append(attempts, forging_record(type, sample_key(type)));
            append(attempts, forging_record_otherwise(sample_key(type)));
            append(attempts, forging_books(type));
        }
    }
    return attempts;
}

const std::vector<std::string> daemon_writes{
    "p_libpub.app_cg_card_check_info", "p_libpub.app_cg_mom_deny_check_result",
    "p_libpub.app_cg_card_deny_check_result", "p_dev.dm_set_card_custom_st", "s_dev.im_card_power_onoff"};
const std::vector<std::string> daemon_removes{"p_libpub.app_cg_card_check_ack",
                                              "p_libpub.app_cg_card_bak_info"};

const std::vector<std::string> daemon_watches{"p_dev.card_info", "p_dev.dp_lib_grole",
                                              "p_libpub.app_cg_card_check_ack"};

AclAttempts noting_health()
{
    return {{"HSET", store::health_key, "system_log_dropped", "1"}, {"DEL", store::health_key}};
}

AclAttempts permitted_to_daemon(const std::set<int32_t> &databases)
{
    AclAttempts attempts = read_and_watched(types_in(databases, daemon_watches));
    for (const std::string &type : types_in(databases, daemon_writes)) {
        append(attempts, writing(record_type(type), sample_key(record_type(type))));
        attempts.push_back(call(store::del_function, record_type(type), sample_key(record_type(type))));
        attempts.push_back({"SREM", store::index_key(type), sample_key(record_type(type))});
    }
    for (const std::string &type : types_in(databases, daemon_removes)) {
        append(attempts, reading(record_type(type)));
        append(attempts, removing(record_type(type), sample_key(record_type(type))));
    }
    append(attempts, {{"FUNCTION", "LOAD", "REPLACE", "x"},
                      {"WAIT", "0", "0"},
                      {"SET", store::data_set_key, "x", "NX"},
                      {"HGET", store::runs_key, "now"},
                      {"HSET", store::runs_key, "now", "1"},
                      {"HDEL", store::runs_key, "1"},
                      {"FCALL", store::register_function, "3", store::data_set_key, store::runs_key,
                       store::counter_key("p_dev.card_info"), "x", "y", "z", "p_dev.card_info"}});
    if (databases.contains(card_database)) {
        append(attempts, noting_health());
    }
    return attempts;
}

AclAttempts refused_to_daemon(const std::set<int32_t> &databases)
{
    std::vector<std::string> touched = types_in(databases, daemon_writes);
    const std::vector<std::string> removed = types_in(databases, daemon_removes);
    touched.insert(touched.end(), removed.begin(), removed.end());
    AclAttempts attempts = forging_everything_but(touched);
    for (const std::string &type : touched) {
        append(attempts, {{"SET", store::counter_key(type), "1"},
                          {"DEL", store::counter_key(type)},
                          {"DEL", store::index_key(type)}});
    }
    append(attempts, {{"HSET", answer_key("somebody"), "6", "0"}});
    append(attempts, server_commands());
    if (!databases.contains(card_database)) {
        append(attempts, noting_health());
    }
    return attempts;
}

AclAttempts permitted_to_module(const std::string &part)
{
    AclAttempts attempts =
        read_and_watched({"p_libpub.app_cg_card_check_info", "p_dev.card_info", "p_dev.dp_lib_grole"});
    append(attempts, writing(record_type(answer_type), answer_key(part)));
    return attempts;
}

AclAttempts refused_to_module(const std::string &part)
{
    const RecordType &type = record_type(answer_type);
    const std::string own = answer_key(part);
    // Names that differ at the end and at the beginning, since a pattern may be open there.
    AclAttempts attempts = forging_record(type, answer_key(part + "x"));
    append(attempts, forging_record(type, answer_key("x" + part)));
    append(attempts, forging_record_otherwise(answer_key(part + "x")));
    append(attempts, forging_books(type));
    append(attempts, forging_everything_but({answer_type}));
    for (const std::string &hidden : daemon_writes) {
        if (hidden != "p_libpub.app_cg_card_check_info") {
            append(attempts, reading(record_type(hidden)));
        }
    }
    append(attempts, forging_data_set());
    append(attempts, server_commands());
    append(attempts, {{"FUNCTION", "LOAD", "REPLACE", "x"},
                      {"COPY", own, answer_key(part + "x")},
                      {"RENAME", own, answer_key(part + "x")},
                      {"SCAN", "0"},
                      {"HGETALL", answer_key(part + "x")},
                      {"HGETALL", store::health_key},
                      {"PSUBSCRIBE", "*"},
                      watching(type)});
    // Deletions through the functions are permitted by the keys that they declare, and fail inside at these.
    append(attempts,
           {{"SREM", store::index_key(answer_type), own}, {"SMEMBERS", store::index_key(answer_type)}});
    return attempts;
}

AclAttempts looking_at_everything()
{
    AclAttempts attempts;
    for (const RecordType &type : record_types()) {
        if (type.db >= 0) {
            append(attempts, reading(type));
            attempts.push_back(watching(type));
        }
    }
    return attempts;
}

AclAttempts permitted_to_watcher()
{
    AclAttempts attempts = connecting();
    append(attempts, looking_at_everything());
    attempts.push_back({"HGETALL", store::health_key});
    return attempts;
}

AclAttempts changing_anything()
{
    AclAttempts attempts = forging_everything_but({});
    append(attempts, forging_data_set());
    append(attempts, server_commands());
    append(attempts, {{"FUNCTION", "LOAD", "REPLACE", "x"}});
    for (const RecordType &type : record_types()) {
        if (type.db >= 0) {
            append(attempts,
                   {{"INCR", store::counter_key(type.name())}, {"SADD", store::index_key(type.name()), "x"}});
        }
    }
    return attempts;
}

} // namespace

AclAttempts permitted_attempts(const AclUser &user)
{
    switch (user.role) {
    case AclRole::daemon:
        return permitted_to_daemon(user.databases);
    case AclRole::module:
        return permitted_to_module(store::key_part(user.module));
    case AclRole::watcher:
        return permitted_to_watcher();
    case AclRole::administrator: {
        AclAttempts attempts = permitted_to_watcher();
        append(attempts, changing_anything());
        return attempts;
    }
    default:
        return {};
    }
}

AclAttempts refused_attempts(const AclUser &user)
{
    switch (user.role) {
    case AclRole::daemon:
        return refused_to_daemon(user.databases);
    case AclRole::module:
        return refused_to_module(store::key_part(user.module));
    case AclRole::watcher:
        return changing_anything();
    case AclRole::nobody: {
        AclAttempts attempts = looking_at_everything();
        append(attempts, changing_anything());
        return attempts;
    }
    default:
        return {};
    }
}

AclAttempts deciding_attempts()
{
    AclAttempts attempts;
    for (const char *type :
         {"p_libpub.app_cg_card_check_info", answer_type, "p_libpub.app_cg_mom_deny_check_result",
          "p_libpub.app_cg_card_deny_check_result"}) {
        append(attempts, forging_record(record_type(type), sample_key(record_type(type))));
        append(attempts, forging_record_otherwise(sample_key(record_type(type))));
    }
    return attempts;
}

} // namespace cg
