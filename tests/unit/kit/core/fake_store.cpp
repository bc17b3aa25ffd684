// In place of the store client.
#include "fake_store.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <list>
#include <map>
#include <utility>

#include "fake_loop.h"

namespace
{

using Bytes = std::string;

// Kept as bytes, since a message belongs to its reader.
struct StoredRecord {
    Bytes key;
    Bytes content;
    uint64_t revision;
};
using Records = std::list<StoredRecord>; // in the order of their first writes

struct ClientState {
    store::Options options;
    store::ConnectionHandler on_connection;
    std::map<const ProtobufCMessageDescriptor *, std::pair<int, store::ChangeHandler>> handlers;
    bool was_opened = false;
};

struct Server {
    std::map<const ProtobufCMessageDescriptor *, Records> types;
    std::list<ClientState *> clients;
    store::Options last_options;
    bool is_up = false;
    bool was_up = false;
    std::string read_refusal;
    std::string write_refusal;
    std::string subscription_refusal;
    std::string connection_refusal;
    std::size_t reads = 0;
    std::map<const ProtobufCMessageDescriptor *, uint64_t> revisions; // of the types' last changes
    std::string handling = "none";
    std::vector<std::string> causes;
    int subscriptions = 0;
};
Server server;

constexpr int32_t the_database = 1;

Bytes packed(const ProtobufCMessage &message)
{
    Bytes bytes(protobuf_c_message_get_packed_size(&message), '\0');
    protobuf_c_message_pack(&message, reinterpret_cast<uint8_t *>(bytes.data()));
    return bytes;
}

store::MessagePtr unpacked(const ProtobufCMessageDescriptor &type, const Bytes &bytes)
{
    return store::MessagePtr(protobuf_c_message_unpack(&type, nullptr, bytes.size(),
                                                       reinterpret_cast<const uint8_t *>(bytes.data())));
}

const void *member_of(const ProtobufCMessage &message, const char *name)
{
    return reinterpret_cast<const char *>(&message) +
           protobuf_c_message_descriptor_get_field_by_name(message.descriptor, name)->offset;
}

// The field "index" is every record's key.
const ProtobufCMessage &index_of(const ProtobufCMessage &record)
{
    return **static_cast<ProtobufCMessage *const *>(member_of(record, "index"));
}

// What clients are told as its key.
std::string name_of(const ProtobufCMessage &record)
{
    const auto slot = *static_cast<const int32_t *>(member_of(index_of(record), "slotid"));
    return std::string(record.descriptor->name) + ':' + std::to_string(slot);
}

Bytes key_of(const ProtobufCMessage &record)
{
    return packed(index_of(record));
}

Records::iterator find(const ProtobufCMessage &key)
{
    Records &records = server.types[key.descriptor];
    return std::find_if(records.begin(), records.end(),
                        [bytes = key_of(key)](const StoredRecord &one) { return one.key == bytes; });
}

// Delivers to one client, unless it has unsubscribed or subscribed again by then.
void deliver_later(ClientState &client, const ProtobufCMessageDescriptor &type, int32_t command,
                   const StoredRecord &stored, bool existing)
{
    const int asked = client.handlers.at(&type).first;
    fake_loop::post([&client, &type, command, stored, existing, asked] {
        const auto is_there = std::find(server.clients.begin(), server.clients.end(), &client);
        if (is_there == server.clients.end()) {
            return;
        }
        const auto found = client.handlers.find(&type);
        if (found == client.handlers.end() || found->second.first != asked) {
            return;
        }
        store::MessagePtr record;
        std::string key;
        store::Change change;
        change.command = command;
        change.database = the_database;
        change.type = &type;
        if (command != VX_MOM_CMD_SUBSCRIBED) {
            record = unpacked(type, stored.content);
            key = name_of(*record);
            change.record = record.get();
            change.key = key;
            change.revision = stored.revision;
        }
        change.existing = existing;
        const store::ChangeHandler handler = found->second.second;
        handler(change);
    });
}

void publish(const ProtobufCMessageDescriptor &type, int32_t command, const StoredRecord &record)
{
    for (ClientState *client : server.clients) {
        if (server.is_up && client->handlers.contains(&type)) {
            deliver_later(*client, type, command, record, false);
        }
    }
}

void deliver_existing(ClientState &client, const ProtobufCMessageDescriptor &type)
{
    for (const StoredRecord &record : server.types[&type]) {
        deliver_later(client, type, VX_MOM_CMD_HMSET, record, true);
    }
}

void tell_connection(ClientState &client, store::ConnectionEvent event)
{
    fake_loop::post([&client, event = std::move(event)] {
        if (std::find(server.clients.begin(), server.clients.end(), &client) != server.clients.end() &&
            client.on_connection) {
            client.on_connection(event);
        }
    });
}

store::Status status_of(const std::string &refusal)
{
    if (!server.is_up) {
        return {-ENOTCONN, "there is no connection"};
    }
    return refusal.empty() ? store::Status{} : store::Status{-EIO, refusal};
}

} // namespace

namespace fake_store
{

void reset()
{
    server = {};
}

void write(const ProtobufCMessage &record)
{
    const auto found = find(record);
    const StoredRecord written{key_of(record), packed(record), ++server.revisions[record.descriptor]};
    if (found == server.types[record.descriptor].end()) {
        server.types[record.descriptor].push_back(written);
    } else {
        *found = written;
    }
    publish(*record.descriptor, VX_MOM_CMD_SET, written);
}

void erase(const ProtobufCMessage &key)
{
    const auto found = find(key);
    if (found != server.types[key.descriptor].end()) {
        StoredRecord deleted = *found;
        deleted.revision = ++server.revisions[key.descriptor];
        server.types[key.descriptor].erase(found);
        publish(*key.descriptor, VX_MOM_CMD_DELETED, deleted);
    }
}

void deliver_undecodable(const ProtobufCMessageDescriptor &type, const std::string &reason, int32_t command,
                         const std::string &key)
{
    for (ClientState *client : server.clients) {
        if (client->handlers.contains(&type)) {
            store::Change change;
            change.command = command;
            change.database = the_database;
            change.type = &type;
            change.key = key;
            change.error = -EBADMSG;
            change.reason = reason;
            client->handlers.at(&type).second(change);
        }
    }
}

void for_each(const ProtobufCMessageDescriptor &type,
              const std::function<void(const ProtobufCMessage &)> &each)
{
    for (const StoredRecord &record : server.types[&type]) {
        each(*unpacked(type, record.content));
    }
}

void lose(const std::string &reason)
{
    server.is_up = false;
    for (ClientState *client : server.clients) {
        tell_connection(*client, {store::ConnectionEvent::Kind::lost, the_database, reason});
    }
}

void restore(bool same_data)
{
    using Kind = store::ConnectionEvent::Kind;
    server.is_up = true;
    const Kind kind = std::exchange(server.was_up, true) ? Kind::returned : Kind::connected;
    for (ClientState *client : server.clients) {
        if (client->was_opened) {
            tell_connection(*client, {kind, the_database, "", same_data});
        }
        for (const auto &[type, handler] : client->handlers) {
            if (!same_data) {
                deliver_existing(*client, *type);
            }
        }
    }
}

void connect()
{
    restore(false);
}

void refuse_reads(const std::string &reason)
{
    server.read_refusal = reason;
}

void refuse_writes(const std::string &reason)
{
    server.write_refusal = reason;
}

void refuse_subscription(const std::string &reason)
{
    server.subscription_refusal = reason;
}

void refuse_connection(const std::string &reason)
{
    server.connection_refusal = reason;
}

std::size_t reads()
{
    return server.reads;
}

const std::vector<std::string> &causes()
{
    return server.causes;
}

const store::Options &options()
{
    return server.last_options;
}

} // namespace fake_store

namespace store
{

struct Client::Parts {
    ClientState state;
};

struct Handling::Parts {
    std::string around;
};

Handling::Handling(const Client & /*client*/, const std::string &key, uint64_t revision)
    : parts_(std::make_unique<Parts>(
          Parts{std::exchange(server.handling, std::to_string(revision) + ' ' + key)}))
{
}

Handling::~Handling()
{
    server.handling = parts_->around;
}

struct Subscription::Parts {
    ClientState *client;
    const ProtobufCMessageDescriptor *type;
    int number;
};

Client::Client(vx_global_t * /*context*/, Options options) : parts_(std::make_unique<Parts>())
{
    server.last_options = options;
    parts_->state.options = std::move(options);
    server.clients.push_back(&parts_->state);
}

Client::~Client()
{
    server.clients.remove(&parts_->state);
}

Status Client::on_connection(int32_t /*db*/, ConnectionHandler handler)
{
    parts_->state.on_connection = std::move(handler);
    return {};
}

Status Client::open(int32_t db)
{
    if (!server.connection_refusal.empty()) {
        return {-EINVAL, server.connection_refusal};
    }
    parts_->state.was_opened = true;
    if (server.is_up) {
        tell_connection(parts_->state, {ConnectionEvent::Kind::connected, db});
    }
    return {};
}

Result<Subscription> Client::subscribe(int32_t /*db*/, const ProtobufCMessageDescriptor &type,
                                       ChangeHandler handler)
{
    Result<Subscription> result;
    if (!server.subscription_refusal.empty()) {
        static_cast<Status &>(result) = {-EINVAL, std::exchange(server.subscription_refusal, "")};
        return result;
    }
    ClientState &state = parts_->state;
    const int number = ++server.subscriptions;
    state.handlers[&type] = {number, std::move(handler)};
    deliver_existing(state, type);
    deliver_later(state, type, VX_MOM_CMD_SUBSCRIBED, {}, false);
    result.value.parts_ = std::make_unique<Subscription::Parts>(Subscription::Parts{&state, &type, number});
    return result;
}

Result<std::optional<Record>> Client::read(int32_t /*db*/, const ProtobufCMessage &key)
{
    server.reads++;
    Result<std::optional<Record>> result;
    static_cast<Status &>(result) = status_of(server.read_refusal);
    const auto found = find(key);
    if (result && found != server.types[key.descriptor].end()) {
        result.value = Record{"", 0, "", unpacked(*key.descriptor, found->content)};
    }
    return result;
}

Status Client::set(int32_t /*db*/, const ProtobufCMessage &record)
{
    Status status = status_of(server.write_refusal);
    if (status) {
        server.causes.push_back(server.handling);
        fake_store::write(record);
    }
    return status;
}

Subscription::Subscription() = default;
Subscription::Subscription(Subscription &&) noexcept = default;

Subscription &Subscription::operator=(Subscription &&other) noexcept
{
    if (this != &other) {
        cancel();
        parts_ = std::move(other.parts_);
    }
    return *this;
}

Subscription::~Subscription()
{
    cancel();
}

void Subscription::cancel() noexcept
{
    if (parts_ == nullptr) {
        return;
    }
    const auto &clients = server.clients;
    if (std::find(clients.begin(), clients.end(), parts_->client) != clients.end()) {
        const auto found = parts_->client->handlers.find(parts_->type);
        if (found != parts_->client->handlers.end() && found->second.first == parts_->number) {
            parts_->client->handlers.erase(found);
        }
    }
    parts_.reset();
}

} // namespace store
