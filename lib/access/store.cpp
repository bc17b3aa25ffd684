// The store, as the verbs use it.
#include "access/store.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "base/failure.h"
#include "base/output.h"
#include "base/text.h"
#include "log/platform_log.h"
#include "store/connection/configuration.h"

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
    const std::string problem = store::configuration_problem();
    if (!problem.empty()) {
        throw Failure(wrong_usage, visible(problem));
    }
    return where();
}

} // namespace

Store::Store(const Output &output) : output_(output), where_(checked_place())
{
    // What the rest of the platform has to say may not go to the daemon's log file, which the same setting
    // may name: two processes cannot rotate one file.
    setenv(log_setting, "none", 1);
    try {
        loop_.emplace("cgctl");
    } catch (const std::runtime_error &problem) {
        throw Failure(failed, problem.what());
    }
    client_.emplace(loop_->context(),
                    store::Options{.notice = [this](int32_t level, const std::string &text) {
                        if (level >= platform::log_warn) {
                            notice(text);
                        }
                    }});
}

// A verb may scan a type more than once: the same words again are no news.
void Store::notice(const std::string &text)
{
    if (noticed_.insert(text).second) {
        output_.notice(visible(text));
    }
}

// The client's failures follow errno.
std::string Store::reason(const store::Status &status) const
{
    const bool is_refused = std::any_of(refusals.begin(), refusals.end(), [&](const char *word) {
        return status.reason.find(word) != std::string::npos;
    });
    return '(' + std::to_string(status.code) + ": " + strerror(-status.code) +
           "): " + visible(status.reason) + (is_refused ? whose_credentials : "");
}

void Store::connect(int32_t db)
{
    if (connected_.contains(db)) {
        return;
    }
    const store::Status status = client_->connect(db);
    if (!status) {
        // The settings were in order: so it is the server that has no such database.
        throw Failure(status.code == -EINVAL ? wrong_usage : failed,
                      where_ + " cannot be used, database " + std::to_string(db) + ' ' + reason(status));
    }
    connected_.insert(db);
}

std::optional<Json> Store::read(const RecordType &type, int32_t db, const Json &key)
{
    connect(db);
    const MessagePtr record = from_json(*type.descriptor, record_with_key(type, key));
    const auto found = client_->read(db, *record);
    check(found, "read", type, db);
    return found.value ? std::optional(to_json(*found.value->message)) : std::nullopt;
}

std::vector<Json> Store::scan(const RecordType &type, int32_t db)
{
    std::vector<Json> records;
    scan(type, db, [&](store::Record &&record) { records.push_back(to_json(*record.message)); });
    std::sort(records.begin(), records.end(), [&](const Json &a, const Json &b) {
        // ordered_json compares objects by their values in the order of the fields.
        return key_part(type, a) < key_part(type, b);
    });
    return records;
}

void Store::scan(const RecordType &type, int32_t db, const std::function<void(store::Record &&)> &each)
{
    connect(db);
    const auto scanned = client_->scan(db, *type.descriptor, each);
    check(scanned, "list", type, db);
    for (const store::LeftOut &record : scanned.value) {
        left_out_.insert(record.key);
        notice("record " + record.key + " does not decode: " + record.why);
    }
}

bool Store::exists(const RecordType &type, int32_t db, const Json &key)
{
    connect(db);
    const MessagePtr record = from_json(*type.descriptor, record_with_key(type, key));
    const auto found = client_->exists(db, *record);
    check(found, "look for", type, db);
    return found.value;
}

void Store::set(const RecordType &type, int32_t db, const Json &record)
{
    const MessagePtr message = from_json(*type.descriptor, record);
    connect(db);
    check(client_->set(db, *message), "write", type, db);
}

void Store::set_fields(const RecordType &type, int32_t db, const Json &record,
                       const std::set<int32_t> &fields)
{
    const MessagePtr message = from_json(*type.descriptor, record);
    const std::vector<int32_t> numbers(fields.begin(), fields.end());
    connect(db);
    check(client_->set_fields(db, *message, numbers), "write fields of", type, db);
}

void Store::erase(const RecordType &type, int32_t db, const Json &key)
{
    const MessagePtr record = from_json(*type.descriptor, record_with_key(type, key));
    connect(db);
    check(client_->erase(db, *record), "delete", type, db);
}

void Store::erase_matching(const RecordType &type, int32_t db, const Json &key, int32_t key_count)
{
    const MessagePtr record = from_json(*type.descriptor, record_with_key(type, key));
    connect(db);
    check(client_->erase_matching(db, *record, key_count), "delete", type, db);
}

void Store::check(const store::Status &status, const char *what, const RecordType &type, int32_t db) const
{
    if (status.code == -EBADMSG) {
        throw Failure(failed, "the record does not decode: " + visible(status.reason));
    }
    if (!status) {
        throw Failure(failed, std::string("could not ") + what + ' ' + type.name() + " in database " +
                                  std::to_string(db) + " of " + where_ + ' ' + reason(status));
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
