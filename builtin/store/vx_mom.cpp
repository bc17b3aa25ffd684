// The C surface of the store client, for the daemon: checks arguments, makes C callbacks of handlers, and
// lets no exception out.
#include "vx_mom.h"

#include <deque>
#include <exception>
#include <map>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "log/platform_log.h"
#include "loop/descriptor_reserve.h"
#include "loop/health.h"
#include "loop/platform_context.h"
#include "store/client.h"
#include "store/connection/errors.h"

namespace
{

using store::Change;
using store::Client;
using store::ConnectionEvent;

constexpr int32_t health_database = 1; // the host's

// What the result that we give out really is.
struct Found : vx_mom_result_t {
    Found() : vx_mom_result_t{store::invalid, nullptr} {}
    store::MessagePtr owned;
};

struct Callback {
    vx_mom_pmsg_f function;
    void *arg;
};

struct Connect {
    vx_mom_connect_f function;
    void *arg;
};

// Who is called back about the connection of a database.
struct Callbacks {
    std::deque<Connect> connects; // in the order asked
    vx_mom_disconnect_f disconnect = nullptr;
    vx_mom_reconnect_f reconnect = nullptr;
};

// The client of a context, and its callbacks.
struct Surface {
    // The functions are kept by the process of which there is one on a device.
    explicit Surface(vx_global_t *context)
        : global(context), client(context, {.keeps_functions = platform::is_health_public()})
    {
    }

    vx_global_t *global;
    bool has_host_database = false;
    std::map<int32_t, Callbacks> callbacks; // before the client, which calls them
    Client client;
    std::map<std::pair<int32_t, const ProtobufCMessageDescriptor *>, store::Subscription> subscriptions;
};

void notify(Surface &surface, const ConnectionEvent &event)
{
    constexpr int32_t other_data = 1;
    constexpr int32_t same_data = 2;
    Callbacks &callbacks = surface.callbacks[event.database];
    const platform::LentDescriptors
        for_what_it_opens; // a folder that it could not open would be an empty one
    switch (event.kind) {
    case ConnectionEvent::Kind::connected:
        if (!callbacks.connects.empty()) {
            const Connect connect = callbacks.connects.front();
            callbacks.connects.pop_front();
            if (connect.function != nullptr) {
                (void)connect.function(surface.global, connect.arg);
            }
        }
        break;
    case ConnectionEvent::Kind::lost:
        if (callbacks.disconnect != nullptr) {
            (void)callbacks.disconnect(surface.global, event.database);
        }
        break;
    case ConnectionEvent::Kind::returned:
        if (callbacks.reconnect != nullptr) {
            (void)callbacks.reconnect(surface.global, event.database,
                                      event.same_data ? same_data : other_data);
        }
        break;
    }
}

// What does not decode is delivered as nothing. A result with an error has no record, so the daemon's line
// about it could not say which one it was; the line of the client does.
void deliver(const Change &change, const Callback &callback)
{
    if (change.error != 0) {
        return;
    }
    auto *record = const_cast<ProtobufCMessage *>(change.record); // the callback may, and should not, write
    vx_mom_result_t result{store::ok, record};
    vx_mom_pmsg_t notification{};
    notification.cmd = change.command;
    if (change.command == VX_MOM_CMD_DELETED) {
        notification.record = record;
    } else if (record != nullptr) {
        notification.result = &result;
    }
    (void)callback.function(callback.arg, &notification);
}

// Runs `work(surface)`; its result, or the error for what prevented it.
template <typename Work>
int32_t with_surface(vx_global_t *global, const Work &work) noexcept
{
    if (global == nullptr) {
        return store::invalid;
    }
    try {
        std::shared_ptr<void> &slot = platform::slot_of(global, platform::Slot::store_client);
        if (slot == nullptr) {
            slot = std::make_shared<Surface>(global);
        }
        return work(*static_cast<Surface *>(slot.get()));
    } catch (const std::bad_alloc &) {
        return store::no_memory;
    } catch (const std::exception &failure) {
        PLATFORM_LOG(platform::log_error, "store client: %s", failure.what());
        return store::internal_failure;
    }
}

// Sets a callback about a database's connection.
template <typename Set>
int32_t set_callback(vx_global_t *global, int32_t db, const Set &set)
{
    return with_surface(global, [&](Surface &surface) {
        const auto handler = [&surface](const ConnectionEvent &event) { notify(surface, event); };
        const int32_t code = surface.client.on_connection(db, handler).code;
        if (code == store::ok) {
            set(surface.callbacks[db]);
        }
        return code;
    });
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
        return store::invalid;
    }
    return with_surface(global, [&](Surface &surface) { return surface.client.set(db, *record).code; });
}

} // namespace

int32_t vx_mom_client_connect_sync(vx_global_t *global, int32_t db)
{
    return with_surface(global, [&](Surface &surface) {
        const int32_t code = surface.client.connect(db).code;
        const bool is_first =
            code == store::ok && db == health_database && !std::exchange(surface.has_host_database, true);
        if (is_first && platform::is_health_public()) {
            (void)surface.client.publish_health(db); // the log has it if that fails
        }
        return code;
    });
}

int32_t vx_mom_client_connect(vx_global_t *global, int32_t db, vx_mom_connect_f callback, void *arg)
{
    const int32_t code = set_callback(global, db, [&](Callbacks &callbacks) {
        callbacks.connects.push_back({callback, arg});
    });
    return code != store::ok
               ? code
               : with_surface(global, [&](Surface &surface) { return surface.client.open(db).code; });
}

int32_t vx_mom_client_set_disconnect_cb(vx_global_t *global, int32_t db, vx_mom_disconnect_f callback,
                                        void * /*arg*/)
{
    return set_callback(global, db, [&](Callbacks &callbacks) { callbacks.disconnect = callback; });
}

int32_t vx_mom_client_set_reconnect_cb(vx_global_t *global, int32_t db, vx_mom_reconnect_f callback,
                                       void * /*arg*/)
{
    return set_callback(global, db, [&](Callbacks &callbacks) { callbacks.reconnect = callback; });
}

int32_t vx_mom_subscribe(vx_global_t *global, int32_t db, const ProtobufCMessage *pattern, int32_t flags,
                         vx_mom_pmsg_f callback, void *arg)
{
    if (pattern == nullptr || callback == nullptr || flags != 0) {
        return store::invalid;
    }
    return with_surface(global, [&](Surface &surface) {
        const Callback wanted{callback, arg};
        auto result = surface.client.subscribe(db, *pattern->descriptor,
                                               [wanted](const Change &change) { deliver(change, wanted); });
        if (result) {
            surface.subscriptions[{db, pattern->descriptor}] = std::move(result.value);
        }
        return result.code;
    });
}

int32_t vx_mom_scan_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *pattern, int32_t flags,
                         vx_mom_pmsg_f callback, void *arg)
{
    if (pattern == nullptr || callback == nullptr || flags != 0) {
        return store::invalid;
    }
    return with_surface(global, [&](Surface &surface) {
        const auto each = [&](store::Record &&record) {
            vx_mom_pmsg_t notification{};
            notification.cmd = VX_MOM_CMD_SCANNED;
            notification.record = record.message.get();
            (void)callback(arg, &notification);
        };
        return surface.client.scan(db, *pattern->descriptor, each).code;
    });
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
        return complete(store::invalid, done, arg);
    }
    const int32_t result = with_surface(global, [&](Surface &surface) {
        return surface.client.set_fields(db, *record, {fields, static_cast<size_t>(count)}).code;
    });
    return complete(result, done, arg);
}

int32_t vx_mom_del(vx_global_t *global, int32_t db, const ProtobufCMessage *record, vx_mom_done_f done,
                   void *arg)
{
    if (record == nullptr) {
        return complete(store::invalid, done, arg);
    }
    const int32_t result =
        with_surface(global, [&](Surface &surface) { return surface.client.erase(db, *record).code; });
    return complete(result, done, arg);
}

int32_t vx_mom_pdel(vx_global_t *global, int32_t db, const ProtobufCMessage *record, int32_t key_count,
                    vx_mom_done_f done, void *arg)
{
    if (record == nullptr || key_count < 0) {
        return complete(store::invalid, done, arg);
    }
    const int32_t result = with_surface(
        global, [&](Surface &surface) { return surface.client.erase_matching(db, *record, key_count).code; });
    return complete(result, done, arg);
}

int32_t vx_mom_exists_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *record)
{
    if (record == nullptr) {
        return store::invalid;
    }
    return with_surface(global, [&](Surface &surface) {
        const auto result = surface.client.exists(db, *record);
        return result ? int32_t{result.value} : result.code;
    });
}

vx_mom_result_t *vx_mom_hgetall_sync(vx_global_t *global, int32_t db, const ProtobufCMessage *record)
{
    auto *result = new (std::nothrow) Found;
    if (result == nullptr || record == nullptr) {
        return result;
    }
    result->error_code = with_surface(global, [&](Surface &surface) {
        auto found = surface.client.read(db, *record);
        if (found && found.value) {
            result->owned = std::move(found.value->message);
        }
        return found.code;
    });
    result->record = result->owned.get();
    return result;
}

void vx_mom_hash_res_free(vx_mom_result_t *result)
{
    const std::unique_ptr<Found> ended(static_cast<Found *>(result));
}
