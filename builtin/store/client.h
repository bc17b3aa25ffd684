// The store as C++ programs use it: calls that say why they failed, subscriptions that end with their handle.
//
// vx_mom.h is a layer over this for the daemon, which runs on platforms without it. What that interface
// cannot do is here: several clients in one process, context in every handler, a reason in every failure, who
// made a change and why, when the store was last heard of.
//
// A database is one numbered database of the store's server; records are found and kept by their type's
// descriptor. All of it belongs to the loop's thread. Calls wait for the store: they ride out a lost
// connection, and fail after a deadline. Handlers are called from the loop only, with the exception of
// scan() and of Options::notice. What a handler throws ends the loop, see loop/loop.h; what it is given dies
// with its return. It may make any call and end any subscription, but must not destroy the client.
#ifndef STORE_CLIENT_H
#define STORE_CLIENT_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "store/change.h"
#include "store/status.h"

namespace store
{

// What became of a call, and what it found; `value` is of use only if it succeeded.
template <typename Value>
struct Result : Status {
    Value value{};
};

// Where the store is, with all its databases.
struct Place {
    std::string endpoint;        // as VX_MOM_ENDPOINT
    std::string credential_file; // as VX_MOM_AUTH_FILE; empty: none
};

struct Options {
    std::string name{};           // how the server lists the client; empty: as the context is named
    std::optional<Place> place{}; // nothing: as the settings say
    // Receives what the client has to say besides the reasons of calls that fail and the events of
    // connections: level (enum LogLevel of log/platform_log.h) and text, one line. Called from within any
    // call, and from the loop: it must not throw (what it throws is dropped), nor make a call of the client.
    // Empty: all of it, reasons and events included, goes to the module's log.
    std::function<void(int32_t level, const std::string &text)> notice{};
    // Asks each server that it keeps a connection to every few seconds whether it has the functions by which
    // records are written, and loads them when it has lost them: those who may not load them cannot write. On
    // the connection of a database without subscriptions, or, where each has some, on another one. For a
    // client that may.
    bool keeps_functions = false;
};

class Client;

// A subscription: ends with this handle, or when the client subscribes to the same type in the same database
// again. An empty handle stands for none.
class Subscription
{
public:
    Subscription();
    ~Subscription();
    Subscription(Subscription &&) noexcept;
    Subscription &operator=(Subscription &&) noexcept;
    Subscription(const Subscription &) = delete;
    Subscription &operator=(const Subscription &) = delete;

    // Nothing is delivered any more. The client may be gone already.
    void cancel() noexcept;

private:
    friend class Client;
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

// As long as the object lives, the writes of all clients on this client's loop name a record's change as
// their cause, as they do by themselves within its notification: for what a program writes later on account
// of it.
class Handling
{
public:
    // key       of the record, as Change::key.
    // revision  of the change, as Change::revision.
    Handling(const Client &client, const std::string &key, uint64_t revision);
    ~Handling();
    Handling(const Handling &) = delete;
    Handling &operator=(const Handling &) = delete;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

class Client
{
public:
    // Connects to nothing yet. Where a database is, is read at its first use; settings that are of no use
    // make every call for it fail with the reason. Databases at the same place share an outage: its budget
    // for calls, and its messages. Throws std::bad_alloc. The context outlives the client.
    explicit Client(vx_global_t *context, Options options = {});
    ~Client();
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    // Waits for the store's answer in a database. Other calls do that by themselves.
    Status connect(int32_t db);

    // The record with the index of `key`; nothing when there is none.
    Result<std::optional<Record>> read(int32_t db, const ProtobufCMessage &key);
    Result<bool> exists(int32_t db, const ProtobufCMessage &key);

    // Calls `each` for every record of a type in the order of their last changes. Returns what stands there
    // and does not decode. What `each` throws comes out of here.
    Result<std::vector<LeftOut>> scan(int32_t db, const ProtobufCMessageDescriptor &type,
                                      const std::function<void(Record &&)> &each);

    // Writes a whole record.
    Status set(int32_t db, const ProtobufCMessage &record);
    // Writes the fields with these numbers; the record comes into being if need be.
    Status set_fields(int32_t db, const ProtobufCMessage &record, std::span<const int32_t> fields);
    // Deletes the record with this index. None there: success.
    Status erase(int32_t db, const ProtobufCMessage &key);
    // Deletes every record with the same first `key_count` fields of the index.
    Status erase_matching(int32_t db, const ProtobufCMessage &key, int32_t key_count);

    // Who receives the events of the lasting connection of a database, in place of the handler before; nobody
    // when empty. Fails only for a number or for settings that are of no use, as do the next two.
    Status on_connection(int32_t db, ConnectionHandler handler);

    // Keeps a connection to a database, again and again if need be, and reports "connected" for each call of
    // this, even when it stands.
    Status open(int32_t db);

    // Delivers every record of a type, then VX_MOM_CMD_SUBSCRIBED, then every change, in order and each once.
    // Subscriptions of a database begin in the order asked. Keeps a connection as open() does, and
    // reports nothing of it. A handler that wants all of it again subscribes again.
    Result<Subscription> subscribe(int32_t db, const ProtobufCMessageDescriptor &type, ChangeHandler handler);

    // Publishes what this process notes in loop/health.h, in the hash of codec/names.h; what an earlier
    // process published is deleted at once. For one client of a process, once. Failure: it could not be
    // deleted.
    Status publish_health(int32_t db);

    // When something last came on the lasting connection (a change, or the answer to the ping that is sent
    // each second), and every change before that was delivered; kept over a loss. Nothing: never.
    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> last_contact(int32_t db) const;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
    friend class Handling;
    friend class Subscription;
};

} // namespace store

#endif
