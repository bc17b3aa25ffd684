// The store, as the verbs use it.
#include "access/store.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/failure.h"
#include "base/output.h"
#include "base/text.h"
#include "log/platform_log.h"
#include "store/connection/configuration.h"
#include "store/full_scan.h"
#include "vx_mom.h"

namespace cg
{

namespace
{

constexpr const char *endpoint_setting = "VX_MOM_ENDPOINT";
constexpr const char *log_setting = "VX_ZLOG";

// What the server answers to somebody who may not.
constexpr std::array refusals{"NOPERM", "NOAUTH", "WRONGPASS"};
constexpr const char *whose_credentials = "; VX_MOM_AUTH_FILE names the file of credentials: app_cg-watch "
                                          "may see everything, app_cg-admin change it "
                                          "as well, a module has its own";

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

std::string where()
{
    const char *endpoint = getenv(endpoint_setting);
    return endpoint == nullptr || *endpoint == '\0'
               ? std::string("the store (") + endpoint_setting + " is not set)"
               : "the store at " + visible(endpoint);
}

// Before anything else is done with the settings, so that there is one message, and ours.
std::string checked_place()
{
    const std::string problem = vx_mom::configuration_problem();
    if (!problem.empty()) {
        throw Failure(wrong_usage, visible(problem));
    }
    return where();
}

} // namespace

Store::Listening::Listening(Store &store)
{
    platform::log_listen([&store](int32_t level, const std::string &text) { store.take_log(level, text); });
}

Store::Listening::~Listening()
{
    platform::log_listen({});
}

Store::Store(const Output &output) : output_(output), where_(checked_place()), listening_(*this)
{
    // Nothing that slips past take_log() may go to the daemon's log file, which the same setting may name:
    // two processes cannot rotate one file.
    setenv(log_setting, "none", 1);
    context_.reset(vx_global_init("cgctl", nullptr));
    if (!context_) {
        throw Failure(failed, "the platform could not be started");
    }
}

void Store::take_log(int32_t level, const std::string &text)
{
    if (level < platform::log_warn) {
        return;
    }
    if (in_call_) {
        told_.push_back(visible(text));
    } else {
        output_.notice(visible(text));
    }
}

// Returns the call's result. What is logged meanwhile becomes the reason if it fails, and notices if not.
int32_t Store::call(const std::function<int32_t()> &platform_call)
{
    told_.clear();
    in_call_ = true;
    const int32_t result = platform_call();
    in_call_ = false;
    if (result >= 0) {
        for (const std::string &text : told_) {
            if (noticed_.insert(text).second) { // a verb may scan a type more than once
                output_.notice(text);
            }
        }
    }
    return result;
}

// The client's failures follow errno; the last thing that it said tells most.
std::string Store::reason(int32_t result) const
{
    const std::string told = told_.empty() ? "" : told_.back();
    const bool is_refused = std::any_of(refusals.begin(), refusals.end(), [&](const char *word) {
        return told.find(word) != std::string::npos;
    });
    return '(' + std::to_string(result) + ": " + strerror(-result) + ')' + (told.empty() ? "" : ": " + told) +
           (is_refused ? whose_credentials : "");
}

void Store::connect(int32_t db)
{
    if (connected_.contains(db)) {
        return;
    }
    const int32_t result = call([&] { return vx_mom_client_connect_sync(context(), db); });
    if (result != 0) {
        // The settings were in order: so it is the server that has no such database.
        throw Failure(result == -EINVAL ? wrong_usage : failed,
                      where_ + " cannot be used, database " + std::to_string(db) + ' ' + reason(result));
    }
    connected_.insert(db);
}

std::optional<Json> Store::read(const RecordType &type, int32_t db, const Json &key)
{
    connect(db);
    const MessagePtr record = from_json(*type.descriptor, record_with_key(type, key));
    std::unique_ptr<vx_mom_result_t, FreeResult> result;
    const int32_t error = call([&] {
        result.reset(vx_mom_hgetall_sync(context(), db, record.get()));
        return result ? result->error_code : -ENOMEM;
    });
    check(error, "read", type, db);
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
    std::vector<std::string> left_out;
    const int32_t error =
        call([&] { return vx_mom::full_scan(context(), db, pattern.get(), gather, &found, left_out); });
    check(error, "list", type, db);
    left_out_.insert(left_out.begin(), left_out.end());
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
    const int32_t result = call([&] { return vx_mom_exists_sync(context(), db, record.get()); });
    check(std::min(result, 0), "look for", type, db);
    return result == 1;
}

void Store::set(const RecordType &type, int32_t db, const Json &record)
{
    const MessagePtr message = from_json(*type.descriptor, record);
    connect(db);
    const int32_t result = call([&] { return vx_mom_set_sync(context(), db, message.get()); });
    check(result, "write", type, db);
}

void Store::set_fields(const RecordType &type, int32_t db, const Json &record,
                       const std::set<int32_t> &fields)
{
    const MessagePtr message = from_json(*type.descriptor, record);
    const std::vector<int32_t> numbers(fields.begin(), fields.end());
    connect(db);
    const int32_t result = call([&] {
        return vx_mom_hmset(context(), db, message.get(), numbers.data(),
                            static_cast<int32_t>(numbers.size()), nullptr, nullptr);
    });
    check(result, "write fields of", type, db);
}

void Store::erase(const RecordType &type, int32_t db, const Json &key)
{
    const MessagePtr record = from_json(*type.descriptor, record_with_key(type, key));
    connect(db);
    const int32_t result = call([&] { return vx_mom_del(context(), db, record.get(), nullptr, nullptr); });
    check(result, "delete", type, db);
}

void Store::erase_matching(const RecordType &type, int32_t db, const Json &key, int32_t key_count)
{
    const MessagePtr record = from_json(*type.descriptor, record_with_key(type, key));
    connect(db);
    const int32_t result =
        call([&] { return vx_mom_pdel(context(), db, record.get(), key_count, nullptr, nullptr); });
    check(result, "delete", type, db);
}

void Store::check(int32_t result, const char *what, const RecordType &type, int32_t db) const
{
    if (result == -EBADMSG) {
        throw Failure(failed, "the record does not decode: " +
                                  (told_.empty() ? std::string(type.name()) : told_.back()));
    }
    if (result != 0) {
        throw Failure(failed, std::string("could not ") + what + ' ' + type.name() + " in database " +
                                  std::to_string(db) + " of " + where_ + ' ' + reason(result));
    }
}

Json Store::with_left_out(Json shown) const
{
    if (!left_out_.empty()) {
        shown["left_out"] = left_out_;
    }
    return shown;
}

int Store::tell_left_out() const
{
    if (left_out_.empty()) {
        return done;
    }
    output_.error(
        std::to_string(left_out_.size()) +
        (left_out_.size() == 1 ? " record that does not decode is" : " records that do not decode are") +
        " left out");
    return failed;
}

Json record_with_key(const RecordType &type, const Json &key)
{
    return type.index == nullptr ? Json::object() : Json{{type.index->name, key}};
}

} // namespace cg
