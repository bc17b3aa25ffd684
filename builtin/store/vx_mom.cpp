// The C surface of the store client: checks arguments, finds the database, and lets no exception out.
#include "vx_mom.h"

#include <exception>
#include <memory>
#include <new>

#include "log/platform_log.h"
#include "store/client.h"
#include "store/full_scan.h"
#include "store/operations.h"
#include "store/silence.h"

namespace
{

using vx_mom::Client;
using vx_mom::Database;

// What the result that we give out really is.
struct Found : vx_mom_result_t {
    Found() : vx_mom_result_t{vx_mom::invalid, nullptr} {}
    vx_mom::MessagePtr owned;
};

// Runs `work(client, database)`; its result, or the error for what prevented it.
template <typename Work>
int32_t with_database(vx_global_t *global, int32_t db, const Work &work) noexcept
{
    try {
        Client *client = Client::of(global);
        Database *database = client == nullptr ? nullptr : client->database(db);
        return database == nullptr ? int32_t{vx_mom::invalid} : work(*client, *database);
    } catch (const std::bad_alloc &) {
        return vx_mom::no_memory;
    } catch (const std::exception &failure) {
        PLATFORM_LOG(platform::log_error, "store client: %s", failure.what());
        return vx_mom::internal_failure;
    }
}

int32_t complete(int32_t result, vx_mom_done_f done, void *arg)
{
    if (done != nullptr) {
        done(arg, result);
    }
    return result;
}

int32_t set_record(vx_global_t *global, int32_t db, const ProtobufCMessage *record)
{
    if (record == nullptr) {
        return vx_mom::invalid;
    }
    return with_database(global, db,
                         [&](Client &, Database &database) { return vx_mom::set(database, *record); });
}

} // namespace

int32_t vx_mom_client_connect_sync(vx_global_t *global, int32_t db)
{
    return with_database(global, db, [](Client &, Database &database) { return database.connect(); });
}

int32_t vx_mom_client_connect(vx_global_t *global, int32_t db, vx_mom_connect_f callback, void *arg)
{
    return with_database(global, db, [&](Client &client, Database &database) {
        client.call_when_connected(database, callback, arg);
        return int32_t{vx_mom::ok};
    });
}

int32_t vx_mom_client_set_disconnect_cb(vx_global_t *global, int32_t db, vx_mom_disconnect_f callback,
                                        void * /*arg*/)
{
    return with_database(global, db, [&](Client &, Database &database) {
        database.on_disconnect(callback);
        return int32_t{vx_mom::ok};
    });
}

int32_t vx_mom_client_set_reconnect_cb(vx_global_t *global, int32_t db, vx_mom_reconnect_f callback,
                                       void * /*arg*/)
{
    return with_database(global, db, [&](Client &, Database &database) {
        database.on_reconnect(callback);
        return int32_t{vx_mom::ok};
    });
}

int32_t vx_mom_subscribe(vx_global_t *global, int32_t db, const ProtobufCMessage *pattern, int32_t flags,
                         vx_mom_pmsg_f callback, void *arg)
{
    if (pattern == nullptr || callback == nullptr || flags != 0) {
        return vx_mom::invalid;
    }
    return with_database(global, db, [&](Client &, Database &database) {
        database.subscribe(*pattern->descriptor, {callback, arg});
        return int32_t{vx_mom::ok};
    });
}

int32_t vx_mom_scan_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *pattern, int32_t flags,
                         vx_mom_pmsg_f callback, void *arg)
{
    if (pattern == nullptr || callback == nullptr || flags != 0) {
        return vx_mom::invalid;
    }
    std::vector<std::string> left_out;
    return vx_mom::full_scan(global, db, pattern, callback, arg, left_out);
}

int32_t vx_mom::full_scan(vx_global_t *global, int32_t db, const ProtobufCMessage *pattern,
                          vx_mom_pmsg_f callback, void *arg, std::vector<std::string> &left_out) noexcept
{
    return with_database(global, db, [&](Client &, Database &database) {
        return scan(database, *pattern->descriptor, {callback, arg}, left_out);
    });
}

std::optional<std::chrono::milliseconds> vx_mom::silent_for(vx_global_t *global, int32_t db) noexcept
{
    std::optional<Clock::time_point> heard;
    (void)with_database(global, db, [&](Client &, const Database &database) {
        heard = database.heard_at();
        return int32_t{ok};
    });
    using std::chrono::milliseconds;
    return heard ? std::optional(std::chrono::duration_cast<milliseconds>(Clock::now() - *heard))
                 : std::nullopt;
}

int32_t vx_mom_set(vx_global_t *global, int32_t db, const ProtobufCMessage *record, vx_mom_done_f done,
                   void *arg)
{
    return complete(set_record(global, db, record), done, arg);
}

int32_t vx_mom_set_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *record)
{
    return set_record(global, db, record);
}

int32_t vx_mom_hmset(vx_global_t *global, int32_t db, const ProtobufCMessage *record, const int32_t *fields,
                     int32_t count, vx_mom_done_f done, void *arg)
{
    if (record == nullptr || fields == nullptr || count <= 0) {
        return complete(vx_mom::invalid, done, arg);
    }
    const int32_t result = with_database(global, db, [&](Client &, Database &database) {
        return vx_mom::hmset(database, *record, fields, count);
    });
    return complete(result, done, arg);
}

int32_t vx_mom_del(vx_global_t *global, int32_t db, const ProtobufCMessage *record, vx_mom_done_f done,
                   void *arg)
{
    if (record == nullptr) {
        return complete(vx_mom::invalid, done, arg);
    }
    const int32_t result = with_database(
        global, db, [&](Client &, Database &database) { return vx_mom::del(database, *record); });
    return complete(result, done, arg);
}

int32_t vx_mom_pdel(vx_global_t *global, int32_t db, const ProtobufCMessage *record, int32_t key_count,
                    vx_mom_done_f done, void *arg)
{
    if (record == nullptr || key_count < 0) {
        return complete(vx_mom::invalid, done, arg);
    }
    const int32_t result = with_database(
        global, db, [&](Client &, Database &database) { return vx_mom::pdel(database, *record, key_count); });
    return complete(result, done, arg);
}

int32_t vx_mom_exists_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *record)
{
    if (record == nullptr) {
        return vx_mom::invalid;
    }
    return with_database(global, db,
                         [&](Client &, Database &database) { return vx_mom::exists(database, *record); });
}

vx_mom_result_t *vx_mom_hgetall_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *record)
{
    auto *result = new (std::nothrow) Found;
    if (result == nullptr || record == nullptr) {
        return result;
    }
    result->error_code = with_database(global, db, [&](Client &, Database &database) {
        return vx_mom::hgetall(database, *record, result->owned);
    });
    result->record = result->owned.get();
    return result;
}

void vx_mom_hash_res_free(vx_mom_result_t *result)
{
    const std::unique_ptr<Found> ended(static_cast<Found *>(result));
}
