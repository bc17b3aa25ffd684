// The tables of a hostile module's attempts.
#include "acl_attacks.h"

#include <algorithm>
#include <ostream>

#include "store/codec/names.h"
#include "store/functions.h"

namespace cg
{

const std::string ack = "p_libpub.app_cg_card_check_ack";
const std::string own = ack + ":0:1:3:m1";
const std::string other = ack + ":0:1:3:m2";
const std::string counter = "@rev:" + ack;
const std::string ack_index = "@idx:" + ack;
const std::string prefix = "@chg:1:";

namespace
{

const std::string card = "p_dev.card_info:0:1:3:0";
const std::string request = "p_libpub.app_cg_card_check_info:0:1:3:0";
const std::string result = "p_libpub.app_cg_mom_deny_check_result:1003";
const std::string role = "p_dev.dp_lib_grole";

std::vector<std::string> books_of(const std::string &key)
{
    const std::string type = key.substr(0, key.find(':'));
    return {key, "@rev:" + type, "@idx:" + type};
}

} // namespace

void PrintTo(const Attempt &attempt, std::ostream *out)
{
    *out << testing::PrintToString(attempt.steps) << " in database " << attempt.database;
}

Command call(const std::string &function, const std::vector<std::string> &keys,
             const std::vector<std::string> &arguments)
{
    Command command{"FCALL", "vx_mom2_" + function, std::to_string(keys.size())};
    command.insert(command.end(), keys.begin(), keys.end());
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

Command write_of(const std::string &key, const std::string &channels)
{
    return call("set", books_of(key), {channels, "", "6", "1"});
}

std::vector<std::pair<int, std::string>> foreign_records()
{
    return {{1, card},
            {1, role},
            {1, request},
            {1, result},
            {28, "p_libpub.app_cg_card_deny_check_result:0:1:3:0"},
            {1, "p_libpub.app_cg_card_bak_info:0:1:3:0"},
            {33, "p_dev.dm_set_card_custom_st:0:1:3:APP_CG:x"},
            {33, "s_dev.im_card_power_onoff:0:1:3:cap:x"}};
}

namespace
{

Attempts on_another_answer()
{
    return {
        {"WriteAnother", {{"HSET", other, "6", "9"}}},
        {"WriteAnotherUnlessThere", {{"HSETNX", other, "9", "9"}}},
        {"CountInAnother", {{"HINCRBY", other, "6", "1"}}},
        {"RemoveFieldOfAnother", {{"HDEL", other, "6"}}},
        {"DeleteAnother", {{"DEL", other}}},
        {"DeleteOwnAndAnother", {{"DEL", own, other}}},
        {"UnlinkAnother", {{"UNLINK", other}}},
        {"ReplaceAnother", {{"SET", other, "x"}}},
        {"LetAnotherExpire", {{"PEXPIRE", other, "1000000"}}},
        {"RenameOwnToAnother", {{"RENAME", own, other}}},
        {"RenameAnotherToOwn", {{"RENAME", other, own}}},
        {"RenameAnotherUnlessThere", {{"RENAMENX", other, own + "x"}}},
        {"CopyOwnToAnother", {{"COPY", own, other, "REPLACE"}}},
        {"CopyAnotherToOwn", {{"COPY", other, own, "REPLACE"}}},
        {"CopyAnotherToAnotherDatabase", {{"COPY", other, own, "DB", "28"}}},
        {"MoveAnother", {{"MOVE", other, "28"}}},
        {"RestoreAnother", {{"RESTORE", other, "0", "<dump>", "REPLACE"}}},
        {"RestoreOwn", {{"RESTORE", own, "0", "<dump>", "REPLACE"}}},
        {"ReadAnother", {{"HGETALL", other}}},
        {"DumpAnother", {{"DUMP", other}}},
        {"ReadAllAnswers", {{"SMEMBERS", ack_index}}},
        {"TouchInTransaction", {{"MULTI"}, {"HSET", other, "6", "9"}, {"EXEC"}}},
        {"WriteAnotherName", {{"HSET", ack + ":0:1:3:m1x", "6", "9"}}},
        {"WriteNameThatEndsLikeOwn", {{"HSET", ack + ":0:1:3:xm1", "6", "9"}}},
        {"WriteWithoutName", {{"HSET", ack, "6", "9"}}},
        {"WriteEscapedSeparator", {{"HSET", ack + ":0:1:3%3Am1", "6", "9"}}},
        {"WriteOwnNameOfAnotherType", {{"HSET", "p_dev.card_info:0:1:3:m1", "6", "9"}}},
    };
}

Attempts through_functions()
{
    const std::vector<std::string> all = books_of(own);
    return {
        {"SetAnother", {write_of(other)}},
        {"HmsetAnother", {call("hmset", books_of(other), {prefix, "", "2", "6", "1"})}},
        {"DelAnother", {call("del", books_of(other), {prefix})}},
        {"DelOwn", {call("del", all, {prefix})}},
        {"PdelAll", {call("pdel", {counter, ack_index}, {prefix, ack + ":"})}},
        {"PdelAnother", {call("pdel", {counter, ack_index}, {prefix, other})}},
        {"PdelOwn", {call("pdel", {counter, ack_index}, {prefix, own})}},
        {"PdelEverything", {call("pdel", {counter, ack_index}, {prefix, ""})}},
        {"PdelCards", {call("pdel", {"@rev:p_dev.card_info", "@idx:p_dev.card_info"}, {prefix, card})}},
        {"AnotherAsSecondKey",
         {call("set", {own, other, ack_index}, {prefix, "", "6", "1"})},
         1,
         Control::works_for_nobody},
        {"AnotherAsThirdKey",
         {call("set", {own, counter, other}, {prefix, "", "6", "1"})},
         1,
         Control::works_for_nobody},
        {"AnotherAsFourthKey", {call("set", {own, counter, ack_index, other}, {prefix, "", "6", "1"})}},
        {"OwnAsCounter",
         {call("set", {own, own, ack_index}, {prefix, "", "6", "1"})},
         1,
         Control::works_for_nobody},
        {"OwnAsIndex",
         {call("set", {own, counter, own}, {prefix, "", "6", "1"})},
         1,
         Control::works_for_nobody},
        {"CounterAsRecord",
         {call("set", {counter, counter, ack_index}, {prefix, "", "6", "1"})},
         1,
         Control::works_for_nobody},
        {"CounterAsRecordToRemove",
         {call("del", {counter, counter, ack_index}, {prefix})},
         1,
         Control::works_for_nobody},
        {"IndexAsRecord",
         {call("set", {ack_index, counter, ack_index}, {prefix, "", "6", "1"})},
         1,
         Control::works_for_nobody},
        {"IndexAsRecordToRemove",
         {call("del", {ack_index, counter, ack_index}, {prefix})},
         1,
         Control::works_for_nobody},
        {"IndexAsRecordToRemoveByPrefix", {call("pdel", {counter, ack_index}, {prefix, ack_index})}},
        {"NewCounterOfOwn", {call("set", {own, ack + ":c:m1", ack_index}, {prefix, "", "6", "1"})}},
        {"NewIndexOfOwn", {call("set", {own, counter, ack + ":i:m1"}, {prefix, "", "6", "1"})}},
        {"CounterOfCards", {call("set", {own, "@rev:p_dev.card_info", ack_index}, {prefix, "", "6", "1"})}},
        {"IndexOfCards", {call("set", {own, counter, "@idx:p_dev.card_info"}, {prefix, "", "6", "1"})}},
        {"CardWithBooksOfAnswers", {call("set", {card, counter, ack_index}, {prefix, "", "6", "1"})}},
        {"AnotherInArguments",
         {call("set", {own}, {other, counter, ack_index, prefix, "", "6", "1"})},
         1,
         Control::works_for_nobody},
        {"EverythingInArguments",
         {call("set", {}, {other, counter, ack_index, prefix, "", "6", "1"})},
         1,
         Control::works_for_nobody},
        {"RegisterRun", {call("register", {"@set", "@runs"}, {"run", "id", "sha"})}},
        {"RegisterRunOnOwnKeys", {call("register", {ack + ":a:m1", ack + ":b:m1"}, {"run", "id", "sha"})}},
        {"RegisterRunOnCounter", {call("register", {counter, own}, {"run", "id", "sha"})}},
        {"ReadOnlyCall", {{"FCALL_RO", "look", "1", other}}},
        {"FunctionOfAnotherLibrary", {{"FCALL", "wipe", "1", other}}},
        {"FunctionThatWritesWhatItDoesNotDeclare", {{"FCALL", "wipe_undeclared", "0", other}}},
    };
}

// A channel is the first argument and the record's key; only the argument is free to choose.
Attempts on_channels()
{
    Attempts attempts{
        {"ChannelIsTheKeyAlone", {write_of(own, "")}},
        {"ChannelOfAnotherDatabase", {write_of(own, "@chg:28:")}},
        {"ChannelOfRequests", {write_of(own, "@chg:1:p_libpub.app_cg_card_check_info:")}},
        {"ChannelOfCards", {write_of(own, "@chg:1:p_dev.card_info:")}},
        {"ChannelWithoutDatabase", {write_of(own, "@chg:")}},
        {"PublishOwnInAnotherDatabase", {{"PUBLISH", "@chg:28:" + own, "x"}}},
        {"PublishAnotherName", {{"PUBLISH", prefix + ack + ":0:1:3:m1x", "x"}}},
        {"PublishAnything", {{"PUBLISH", "x", "x"}}},
        {"PublishOwnInShard", {{"SPUBLISH", prefix + other, "x"}}},
        {"PublishInTransaction", {{"MULTI"}, {"PUBLISH", prefix + other, "x"}, {"EXEC"}}},
        {"ListenToAnswers", {{"PSUBSCRIBE", prefix + ack + ":*"}}},
        {"ListenToAnother", {{"SUBSCRIBE", prefix + other}}},
        {"ListenToEverything", {{"PSUBSCRIBE", "*"}}},
        {"ListenToEveryChange", {{"PSUBSCRIBE", "@chg:1:*"}}},
    };
    for (const auto &[name, key] : std::vector<std::pair<std::string, std::string>>{
             {"Another", other}, {"Request", request}, {"Card", card}, {"Role", role}, {"Result", result}}) {
        attempts.push_back({"Publish" + name, {{"PUBLISH", prefix + key, "1:11:31:0"}}});
    }
    return attempts;
}

// A result that names this module's answer as what it was decided by would be believed.
Attempts with_a_forged_cause()
{
    const std::string forged = "0123abcd.1 1 " + own;
    const std::string change = "1:11:41:12:by" + std::to_string(forged.size()) + ':' + forged;
    return {
        {"WriteAResultWithAForgedCause", {call("set", books_of(result), {prefix, forged, "6", "1"})}},
        {"WriteFieldsOfAResultWithAForgedCause",
         {call("hmset", books_of(result), {prefix, forged, "2", "6", "1"})}},
        {"WriteACauseIntoAResult", {{"HSET", result, "by", forged}}},
        {"DeleteAResultWithAForgedCause", {call("del", books_of(result), {prefix, forged})}},
        {"DeleteResultsWithAForgedCause",
         {call("pdel", {books_of(result)[1], books_of(result)[2]}, {prefix, result, forged})}},
        {"PublishAResultWithAForgedCause", {{"PUBLISH", prefix + result, change}}},
        {"DeleteARequestWithAForgedCause", {call("del", books_of(request), {prefix, forged})}},
        {"PublishARequestWithAForgedCause", {{"PUBLISH", prefix + request, change}}},
    };
}

Attempts on_the_books()
{
    Attempts attempts{
        {"SetCounter", {{"SET", counter, "1"}}},
        {"SetCounterUnlessThere", {{"SETNX", counter + "x", "1"}}},
        {"SetCounterWithExpiry", {{"SETEX", counter, "100000", "1"}}},
        {"SetManyCounters", {{"MSET", counter, "1", own + "x", "2"}}},
        {"ExchangeCounter", {{"GETSET", counter, "1"}}},
        {"TakeCounter", {{"GETDEL", counter}}},
        {"ReadCounterAndLetExpire", {{"GETEX", counter, "EX", "100000"}}},
        {"AppendToCounter", {{"APPEND", counter, "0"}}},
        {"OverwriteInCounter", {{"SETRANGE", counter, "0", "9"}}},
        {"SetBitInCounter", {{"SETBIT", counter, "7", "0"}}},
        {"SetBitsInCounter", {{"BITFIELD", counter, "SET", "u8", "0", "57"}}},
        {"CombineIntoCounter", {{"BITOP", "NOT", counter, counter}}},
        {"IncreaseCounterByMany", {{"INCRBY", counter, "100"}}},
        {"IncreaseCounterByAFraction", {{"INCRBYFLOAT", counter, "100"}}},
        {"DecreaseCounter", {{"DECR", counter}}},
        {"DecreaseCounterByMany", {{"DECRBY", counter, "2"}}},
        {"DeleteCounter", {{"DEL", counter}}},
        {"UnlinkCounter", {{"UNLINK", counter}}},
        {"LetCounterExpire", {{"EXPIRE", counter, "100000"}}},
        {"RenameCounter", {{"RENAME", counter, own}}},
        {"RenameOwnToCounter", {{"RENAME", own, counter}}},
        {"CopyToCounter", {{"COPY", "@rev:p_dev.card_info", counter, "REPLACE"}}},
        {"SortIntoCounter", {{"SORT", ack_index, "ALPHA", "STORE", counter}}},
        {"RestoreCounter", {{"RESTORE", counter, "0", "<dump>", "REPLACE"}}},
        {"RemoveFromIndex", {{"SREM", ack_index, other}}},
        {"RemoveOwnFromIndex", {{"SREM", ack_index, own}}},
        {"PopFromIndex", {{"SPOP", ack_index}}},
        {"MoveFromIndex", {{"SMOVE", ack_index, ack_index + "x", own}}},
        {"DeleteIndex", {{"DEL", ack_index}}},
        {"UnlinkIndex", {{"UNLINK", ack_index}}},
        {"LetIndexExpire", {{"EXPIRE", ack_index, "100000"}}},
        {"RenameIndex", {{"RENAME", ack_index, ack_index + "x"}}},
        {"CopyToIndex", {{"COPY", "@idx:p_dev.card_info", ack_index, "REPLACE"}}},
        {"IntersectIntoIndex", {{"SINTERSTORE", ack_index, "@idx:p_dev.card_info"}}},
        {"UniteIntoIndex", {{"SUNIONSTORE", ack_index, "@idx:p_dev.card_info"}}},
        {"SubtractIntoIndex", {{"SDIFFSTORE", ack_index, ack_index}}},
        {"SetDataSet", {{"SET", "@set", "x"}}},
        {"DeleteDataSet", {{"DEL", "@set"}}},
        {"ForgeRuns", {{"HSET", "@runs", "now", "9"}}},
        {"DeleteRuns", {{"DEL", "@runs"}}},
        {"ForgeHealth", {{"HSET", "@health", "system_log_dropped", "9"}}},
        {"DeleteHealth", {{"DEL", "@health"}}},
        {"CountInTransaction", {{"MULTI"}, {"SET", counter, "1"}, {"EXEC"}}},
    };
    for (const char *type : {"p_dev.card_info", "p_libpub.app_cg_card_check_info"}) {
        const std::string name = type == std::string("p_dev.card_info") ? "Cards" : "Requests";
        attempts.push_back({"CountFor" + name, {{"INCR", std::string("@rev:") + type}}});
        attempts.push_back({"DeleteCounterOf" + name, {{"DEL", std::string("@rev:") + type}}});
        attempts.push_back({"AddToIndexOf" + name, {{"SADD", std::string("@idx:") + type, "x"}}});
        attempts.push_back({"EmptyIndexOf" + name, {{"SPOP", std::string("@idx:") + type}}});
    }
    return attempts;
}

Attempts on_other_records()
{
    Attempts attempts;
    for (const auto &[database, key] : foreign_records()) {
        const std::size_t begin = key.find('.') + 1;
        const std::string type = key.substr(begin, std::min(key.find(':'), key.size()) - begin);
        const std::string channels = "@chg:" + std::to_string(database) + ":";
        attempts.push_back({"Set_" + type, {write_of(key, channels)}, database});
        attempts.push_back(
            {"Hmset_" + type, {call("hmset", books_of(key), {channels, "", "2", "6", "1"})}, database});
        attempts.push_back({"Del_" + type, {call("del", books_of(key), {channels})}, database});
        attempts.push_back({"Hset_" + type, {{"HSET", key, "6", "1"}}, database});
        attempts.push_back({"Remove_" + type, {{"DEL", key}}, database});
        attempts.push_back({"Rename_" + type, {{"RENAME", key, own}}, database});
        attempts.push_back({"CopyTo_" + type, {{"HSET", key, "6", "0"}, {"COPY", key, own}}, database});
    }
    return attempts;
}

Attempts on_the_server()
{
    return {
        {"Eval", {{"EVAL", "return redis.call('HSET', KEYS[1], '6', '9')", "1", other}}},
        {"EvalWithOwnKey", {{"EVAL", "return redis.call('HSET', ARGV[1], '6', '9')", "1", own, other}}},
        {"EvalReadOnly", {{"EVAL_RO", "return redis.call('HGETALL', KEYS[1])", "1", other}}},
        {"EvalSha", {{"EVALSHA", "<sha>", "1", other}}},
        {"EvalShaReadOnly", {{"EVALSHA_RO", "<sha_ro>", "1", other}}},
        {"ScriptLoad", {{"SCRIPT", "LOAD", "return 1"}}},
        {"ScriptFlush", {{"SCRIPT", "FLUSH"}}},
        {"FunctionLoad",
         {{"FUNCTION", "LOAD", "#!lua name=evil\nredis.register_function('evil', function() end)"}}},
        {"FunctionReplace", {{"FUNCTION", "LOAD", "REPLACE", store::library_code() + "\n"}}},
        {"FunctionDelete", {{"FUNCTION", "DELETE", "vx_mom2"}}},
        {"FunctionFlush", {{"FUNCTION", "FLUSH"}}},
        {"FunctionDump", {{"FUNCTION", "DUMP"}}},
        {"FunctionList", {{"FUNCTION", "LIST"}}},
        {"AclForSelf", {{"ACL", "SETUSER", "module-m1", "+@all", "allkeys"}}},
        {"AclForAnother", {{"ACL", "SETUSER", "module-m2", "nopass"}}},
        {"AclForDefault", {{"ACL", "SETUSER", "default", "on", "nopass", "+@all", "allkeys"}}},
        {"AclDelete", {{"ACL", "DELUSER", "module-m2"}}},
        {"AclList", {{"ACL", "LIST"}}},
        {"AclGet", {{"ACL", "GETUSER", "app_cg"}}},
        {"AclLoad", {{"ACL", "LOAD"}}},
        {"AclSave", {{"ACL", "SAVE"}}},
        {"AclLog", {{"ACL", "LOG"}}},
        {"ConfigSet", {{"CONFIG", "SET", "maxclients", "100"}}},
        {"ConfigGet", {{"CONFIG", "GET", "*"}}},
        {"ConfigResetstat", {{"CONFIG", "RESETSTAT"}}},
        {"Flushall", {{"FLUSHALL"}}},
        {"Flushdb", {{"FLUSHDB"}}},
        {"FlushInTransaction", {{"MULTI"}, {"FLUSHALL"}, {"EXEC"}}},
        {"Swapdb", {{"SWAPDB", "1", "28"}}},
        {"Keys", {{"KEYS", "*"}}},
        {"Scan", {{"SCAN", "0"}}},
        {"Randomkey", {{"RANDOMKEY"}}},
        {"Dbsize", {{"DBSIZE"}}},
        {"Monitor", {{"MONITOR"}}},
        {"Debug", {{"DEBUG", "SLEEP", "0"}}, 1, Control::works_for_nobody},
        {"ClientList", {{"CLIENT", "LIST"}}},
        {"ClientKill", {{"CLIENT", "KILL", "USER", "module-m2"}}},
        {"ClientPause", {{"CLIENT", "PAUSE", "1"}}},
        {"ClientReply", {{"CLIENT", "REPLY", "ON"}}},
        {"ClientTracking", {{"CLIENT", "TRACKING", "OFF"}}},
        {"Replicaof", {{"REPLICAOF", "NO", "ONE"}}},
        {"Failover", {{"FAILOVER", "ABORT"}}, 1, Control::works_for_nobody},
        {"Psync", {{"PSYNC", "?", "-1"}}, 1, Control::works_for_nobody},
        {"Migrate", {{"MIGRATE", "127.0.0.1", "1", "nothing", "0", "1"}}},
        {"Save", {{"SAVE"}}},
        {"Bgrewriteaof", {{"BGREWRITEAOF"}}},
        {"ModuleLoad", {{"MODULE", "LOAD", "/nonexistent"}}, 1, Control::works_for_nobody},
        {"ModuleList", {{"MODULE", "LIST"}}},
        {"SlowlogGet", {{"SLOWLOG", "GET"}}},
        {"MemoryStats", {{"MEMORY", "STATS"}}},
        {"PubsubChannels", {{"PUBSUB", "CHANNELS"}}},
        {"Shutdown", {{"SHUTDOWN", "NOSAVE", "NOW"}}, 1, Control::works_for_nobody},
        {"LoginAsAdministrator",
         {{"AUTH", "app_cg-admin", "guess"}, {"FLUSHALL"}},
         1,
         Control::works_for_nobody},
        {"LoginAsDefault", {{"AUTH", "guess"}, {"FLUSHALL"}}, 1, Control::works_for_nobody},
        {"HelloAsDefault",
         {{"HELLO", "2", "AUTH", "default", ""}, {"FLUSHALL"}},
         1,
         Control::works_for_nobody},
        {"BackToTheDefaultUser", {{"RESET"}, {"FLUSHALL"}}, 1, Control::works_for_nobody},
        {"BackToTheDefaultUserToWrite",
         {{"RESET"}, {"SELECT", "1"}, {"HSET", other, "6", "9"}},
         1,
         Control::works_for_nobody},
    };
}

// Rights are the same in every database.
Attempts in_another_database()
{
    const std::string position_result = "p_libpub.app_cg_card_deny_check_result:0:1:3:0";
    Attempts attempts{
        {"WriteAnother", {{"HSET", other, "6", "9"}}},
        {"SetCounter", {{"SET", counter, "1"}}},
        {"WriteOwnThroughFunction", {write_of(own, "@chg:28:")}},
        {"WriteAnotherThroughFunction", {write_of(other, "@chg:28:")}},
        {"WriteResult", {{"HSET", position_result, "6", "9"}}},
        {"DeleteResult", {{"DEL", position_result}}},
        {"WriteResultThroughFunction", {write_of(position_result, "@chg:28:")}},
        {"SelectAndDelete", {{"SELECT", "1"}, {"DEL", other}}},
        {"Flushdb", {{"FLUSHDB"}}},
    };
    for (Attempt &attempt : attempts) {
        attempt.database = 28;
    }
    return attempts;
}

} // namespace

std::vector<Assault> assaults()
{
    return {{"AnotherAnswer", on_another_answer()},
            {"Functions", through_functions()},
            {"Channels", on_channels()},
            {"Causes", with_a_forged_cause()},
            {"Books", on_the_books()},
            {"OtherRecords", on_other_records()},
            {"Server", on_the_server()},
            {"AnotherDatabase", in_another_database()}};
}

} // namespace cg
