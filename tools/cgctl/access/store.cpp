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
#include "records/record_types.h"
#include "store/connection/configuration.h"
#include "store/connection/errors.h"

namespace cg
{

namespace
{

constexpr const char *endpoint_setting = "VX_MOM_ENDPOINT";
constexpr const char *log_setting = "VX_ZLOG";

// What the server answers to who lacks the right.
constexpr std::array refusals{"NOPERM", "NOAUTH", "WRONGPASS"};
constexpr const char *whose_credentials = " names the file of credentials: app_cg-watch may see everything, "
                                          "app_cg-admin change it as well, a module has its own";

// Of the endpoint for all databases, what the environment has.
std::string where(int32_t db)
{
    if (const platform::Setting own = store::configured_endpoint(db); own.name != endpoint_setting) {
        return "the store at " + visible(own.value);
    }
    const char *endpoint = getenv(endpoint_setting);
    return endpoint == nullptr || *endpoint == '\0'
               ? std::string("the store (") + endpoint_setting + " is not set)"
               : "the store at " + visible(endpoint);
}

// Before anything else is done with the settings, so that there is one message, and ours.
void check_settings()
{
    const std::string problem = store::configuration_problem(databases());
    if (!problem.empty()) {
        throw Failure(wrong_usage, visible(problem));
    }
}

// Why a call on a database failed; the client's failures follow errno.
std::string reason(const store::Status &status, int32_t db)
{
    const bool is_refused = std::any_of(refusals.begin(), refusals.end(), [&](const char *word) {
        return status.reason.find(word) != std::string::npos;
    });
    const char *what = status.code == store::refused ? "refused by the server" : strerror(-status.code);
    return '(' + std::to_string(status.code) + ": " + what + "): " + visible(status.reason) +
           (is_refused ? "; " + store::configured_credentials(db).name + whose_credentials : "");
}

void check(const store::Status &status, const char *what, const ProtobufCMessageDescriptor &type, int32_t db)
{
    if (status.code == -EBADMSG) {
        throw Failure(failed, "the record does not decode: " + visible(status.reason));
    }
    if (!status) {
        throw Failure(failed, std::string("could not ") + what + ' ' + type.name + " in database " +
                                  std::to_string(db) + " of " + where(db) + ' ' + reason(status, db));
    }
}

} // namespace

std::string text_of(const AwayServer &away)
{
    std::string numbers = away.databases.size() > 1 ? "s " : " ";
    for (const int32_t db : away.databases) {
        numbers += (db == *away.databases.begin() ? "" : " and ") + std::to_string(db);
    }
    return where(*away.databases.begin()) + " cannot be used, database" + numbers + ' ' + away.problem;
}

Store::Store(const Output &output) : output_(output)
{
    check_settings();
    // The platform's own log must not go to the daemon's log file, which the same setting may name: two
    // processes cannot rotate one file.
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

void Store::connect(int32_t db)
{
    if (const store::Status status = reach(db); !status) {
        throw Failure(failed, text_of({"", {db}, reason(status, db)}));
    }
}

bool Store::try_connect(int32_t db)
{
    if (std::any_of(away_.begin(), away_.end(),
                    [db](const AwayServer &away) { return away.databases.contains(db); })) {
        return false;
    }
    const store::Status status = reach(db);
    if (status) {
        return true;
    }
    const std::string server = store::configured_endpoint(db).value;
    const auto known = std::find_if(away_.begin(), away_.end(),
                                    [&](const AwayServer &away) { return away.server == server; });
    if (known == away_.end()) {
        away_.push_back({server, {db}, reason(status, db)});
    } else {
        known->databases.insert(db);
    }
    return false;
}

// Connects to a database, once. Throws Failure for one that the server does not have.
store::Status Store::reach(int32_t db)
{
    if (connected_.contains(db)) {
        return {};
    }
    store::Status status = client_->connect(db);
    if (status) {
        connected_.insert(db);
    } else if (status.code == -EINVAL) { // the settings were in order: so the server has no such database
        throw Failure(wrong_usage, text_of({"", {db}, reason(status, db)}));
    }
    return status;
}

std::optional<store::Record> Store::read(int32_t db, const ProtobufCMessage &key)
{
    connect(db);
    auto found = client_->read(db, key);
    check(found, "read", *key.descriptor, db);
    return std::move(found.value);
}

bool Store::exists(int32_t db, const ProtobufCMessage &key)
{
    connect(db);
    const auto found = client_->exists(db, key);
    check(found, "look up", *key.descriptor, db);
    return found.value;
}

std::vector<store::Record> Store::scan(const ProtobufCMessageDescriptor &type)
{
    return scan(type, home_of(type));
}

std::vector<store::Record> Store::scan(const ProtobufCMessageDescriptor &type, int32_t db)
{
    connect(db);
    std::vector<store::Record> records;
    const auto scanned =
        client_->scan(db, type, [&records](store::Record &&record) { records.push_back(std::move(record)); });
    check(scanned, "list", type, db);
    for (const store::LeftOut &record : scanned.value) {
        left_out_.insert(record.key);
        notice("record " + record.key + " does not decode: " + record.why);
    }
    return records;
}

void Store::set(int32_t db, const ProtobufCMessage &record)
{
    connect(db);
    check(client_->set(db, record), "write", *record.descriptor, db);
}

void Store::set_fields(int32_t db, const ProtobufCMessage &record, std::span<const int32_t> fields)
{
    connect(db);
    check(client_->set_fields(db, record, fields), "write fields of", *record.descriptor, db);
}

void Store::set_field(int32_t db, const ProtobufCMessage &record, const char *field)
{
    const auto *found = protobuf_c_message_descriptor_get_field_by_name(record.descriptor, field);
    const auto number = static_cast<int32_t>(found->id);
    set_fields(db, record, {&number, 1});
}

void Store::erase(int32_t db, const ProtobufCMessage &key)
{
    connect(db);
    check(client_->erase(db, key), "delete", *key.descriptor, db);
}

void Store::erase_matching(int32_t db, const ProtobufCMessage &key, int32_t key_count)
{
    connect(db);
    check(client_->erase_matching(db, key, key_count), "delete", *key.descriptor, db);
}

int Store::report_left_out() const
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

} // namespace cg
