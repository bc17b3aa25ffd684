// The store, as the verbs use it.
#include "store.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "failure.h"
#include "session.h"
#include "text.h"
#include "vx_mom.h"

namespace cgctl
{

namespace
{

constexpr const char *endpoint_setting = "VX_MOM_ENDPOINT";
constexpr const char *log_setting = "VX_ZLOG";

struct FreeResult {
    void operator()(vx_mom_result_t *result) const noexcept { vx_mom_hash_res_free(result); }
};

// What a scan gathers; an exception may not cross the client's code, so it waits here.
struct Found {
    std::vector<Json> records;
    bool out_of_memory = false;
};

int32_t gather(void *arg, vx_mom_pmsg_t *pmsg)
{
    auto &found = *static_cast<Found *>(arg);
    if (pmsg->cmd != VX_MOM_CMD_SCANNED || pmsg->record == nullptr) {
        return 0;
    }
    try {
        found.records.push_back(to_json(*pmsg->record));
    } catch (const std::bad_alloc &) {
        found.out_of_memory = true;
    }
    return 0;
}

// The client's failures follow errno.
std::string reason(int32_t result)
{
    return std::to_string(result) + ": " + strerror(-result);
}

// An endpoint is known by the word before its first colon; more is for the platform to judge.
void check_form(const std::string &endpoint)
{
    const std::size_t colon = endpoint.find(':');
    const bool path_missing = endpoint.starts_with("unix:") && !endpoint.starts_with("unix:/");
    if (colon == std::string::npos || colon == 0 || path_missing) {
        throw Failure(wrong_usage, in_quotes(endpoint) + " is no endpoint; unix:/path or tcp:host:port");
    }
}

std::string where(const Session &session)
{
    const char *setting = getenv(endpoint_setting);
    const std::string inherited = setting == nullptr ? "" : setting;
    const std::string endpoint = session.endpoint.empty() ? inherited : session.endpoint;
    if (!endpoint.empty()) {
        check_form(endpoint);
    }
    return endpoint.empty() ? std::string("the store (") + endpoint_setting + " is not set)"
                            : "the store at " + endpoint;
}

} // namespace

Store::Store(const Session &session) : where_(where(session))
{
    if (!session.endpoint.empty()) {
        setenv(endpoint_setting, session.endpoint.c_str(), 1);
    }
    // What the platform has to say goes to the user. Never to the daemon's log file, which the same setting
    // may name: two processes cannot rotate one file. A program that reads our errors wants JSON only.
    setenv(log_setting, session.json ? "none" : "stderr", 1);
    context_.reset(vx_global_init("cgctl", nullptr));
    if (!context_) {
        throw Failure(failed, "the platform could not be started");
    }
}

void Store::connect(int32_t db)
{
    if (connected_.contains(db)) {
        return;
    }
    const int32_t result = vx_mom_client_connect_sync(context(), db);
    if (result != 0) {
        const bool wrong = result == -EINVAL;
        throw Failure(
            wrong ? wrong_usage : failed,
            where_ + " cannot be used, database " + std::to_string(db) + " (" + reason(result) + ")" +
                (wrong ? "; give an endpoint unix:/path or tcp:host:port, and a database that it has" : ""));
    }
    connected_.insert(db);
}

std::optional<Json> Store::read(const RecordType &type, int32_t db, const Json &key)
{
    connect(db);
    const MessagePtr record = from_json(*type.descriptor, record_with_key(type, key));
    const std::unique_ptr<vx_mom_result_t, FreeResult> result(
        vx_mom_hgetall_sync(context(), db, record.get()));
    check(result ? result->error_code : -1, "read", type, db);
    if (result->record == nullptr) {
        return std::nullopt;
    }
    return to_json(*result->record);
}

std::vector<Json> Store::scan(const RecordType &type, int32_t db)
{
    connect(db);
    const MessagePtr pattern = from_json(*type.descriptor, record_with_key(type, Json::object()));
    Found found;
    check(vx_mom_scan_sync(context(), db, pattern.get(), 0, gather, &found), "list", type, db);
    if (found.out_of_memory) {
        throw Failure(failed, "memory ran out");
    }
    std::sort(found.records.begin(), found.records.end(), [&](const Json &a, const Json &b) {
        // ordered_json compares objects by their values in the order of the fields.
        return key_part(type, a) < key_part(type, b);
    });
    return std::move(found.records);
}

bool Store::exists(const RecordType &type, int32_t db, const Json &key)
{
    connect(db);
    const MessagePtr record = from_json(*type.descriptor, record_with_key(type, key));
    const int32_t result = vx_mom_exists_sync(context(), db, record.get());
    check(std::min(result, 0), "look for", type, db);
    return result == 1;
}

void Store::set(const RecordType &type, int32_t db, const Json &record)
{
    const MessagePtr message = from_json(*type.descriptor, record);
    connect(db);
    check(vx_mom_set_sync(context(), db, message.get()), "write", type, db);
}

void Store::set_fields(const RecordType &type, int32_t db, const Json &record,
                       const std::set<int32_t> &fields)
{
    const MessagePtr message = from_json(*type.descriptor, record);
    const std::vector<int32_t> numbers(fields.begin(), fields.end());
    connect(db);
    check(vx_mom_hmset(context(), db, message.get(), numbers.data(), static_cast<int32_t>(numbers.size()),
                       nullptr, nullptr),
          "write fields of", type, db);
}

void Store::erase(const RecordType &type, int32_t db, const Json &key)
{
    const MessagePtr record = from_json(*type.descriptor, record_with_key(type, key));
    connect(db);
    check(vx_mom_del(context(), db, record.get(), nullptr, nullptr), "delete", type, db);
}

void Store::erase_matching(const RecordType &type, int32_t db, const Json &key, int32_t key_count)
{
    const MessagePtr record = from_json(*type.descriptor, record_with_key(type, key));
    connect(db);
    check(vx_mom_pdel(context(), db, record.get(), key_count, nullptr, nullptr), "delete", type, db);
}

void Store::check(int32_t result, const char *what, const RecordType &type, int32_t db) const
{
    if (result != 0) {
        throw Failure(failed, std::string("could not ") + what + ' ' + type.name() + " in database " +
                                  std::to_string(db) + " of " + where_ + " (" + reason(result) + ")");
    }
}

Json record_with_key(const RecordType &type, const Json &key)
{
    return type.index == nullptr ? Json::object() : Json{{type.index->name, key}};
}

} // namespace cgctl
