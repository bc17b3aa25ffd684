// The store as C++ programs use it: the databases of a client, and their turns on the loop; see the header.
#include "store/client.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <exception>
#include <list>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <utility>

#include "log/text.h"
#include "loop/platform_context.h"
#include "store/connection/configuration.h"
#include "store/database.h"
#include "store/function_keeper.h"
#include "store/health_publisher.h"
#include "store/operations.h"

namespace store
{

namespace
{

// Writing to a connection that the server has closed raises SIGPIPE, which would end a program that knows
// nothing of it. Only the default disposition is changed: a program's own handler stays.
void ignore_broken_pipes()
{
    struct sigaction current {
    };
    if (sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
        (void)std::signal(SIGPIPE, SIG_IGN);
    }
}

// Another one is another life of the program.
std::string random_instance()
{
    std::random_device random;
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "%08x", static_cast<unsigned>(random()));
    return text.data();
}

} // namespace

struct Subscription::Parts {
    std::weak_ptr<TypeSubscription> asked;
    uint64_t times_asked;
};

struct Client::Parts {
    Parts(vx_global_t *context, Options &&options);

    void report(const std::string &problem);
    store::Server *server_of(int32_t number, std::string &why);
    static void turn_cb(int fd, short what, void *self);
    void turn();
    void schedule_turn();
    void report_connected(bool &more);
    Database *database(int32_t number, std::string &why);
    void begin(Database &database);
    template <typename Work>
    Status call(int32_t db, const Work &work);

    store::Shared shared;
    std::optional<Place> everywhere;         // nothing: as the settings say
    std::map<int32_t, std::string> problems; // of the settings for a database
    std::list<store::Server> servers;        // in the order of their first use
    bool in_turn = false;
    platform::Event turn_event;
    std::map<int32_t, std::unique_ptr<Database>> databases;
    std::list<Database *> requests;    // for "connected", in the order asked
    std::list<FunctionKeeper> keepers; // one for each server that is followed
    std::optional<HealthPublisher> health;
};

Client::Parts::Parts(vx_global_t *context, Options &&options)
    : shared{context, platform::event_base_of(context), platform::Messages(std::move(options.notice)),
             store::configured_deadline(), [this] { schedule_turn(); }},
      turn_event(event_new(shared.base, -1, 0, turn_cb, this))
{
    const std::string &module = platform::module_of(context);
    if (shared.messages.go_to_log()) {
        platform::log_open(module);
    }
    ignore_broken_pipes();
    shared.instance = random_instance();
    shared.keeps_functions = options.keeps_functions;
    shared.name = options.name.empty() ? module : options.name;
    everywhere = std::move(options.place);
}

void Client::Parts::report(const std::string &problem)
{
    LOG_TO(shared.messages, platform::log_error, "store client: %s", problem.c_str());
    shared.messages.notify_starter("store client: " + problem);
}

// Where a database is; null, with the reason, when the settings are of no use.
store::Server *Client::Parts::server_of(int32_t number, std::string &why)
{
    const auto place = everywhere ? store::place_of(everywhere->endpoint, everywhere->credential_file, why)
                                  : store::configured_place(number, why);
    if (!place) {
        why = platform::visible(why);
        return nullptr;
    }
    const auto found = std::find_if(servers.begin(), servers.end(),
                                    [&](const store::Server &server) { return server.is_at(*place); });
    return found != servers.end() ? &*found : &servers.emplace_back(shared, *place);
}

void Client::Parts::turn_cb(int /*fd*/, short /*what*/, void *self)
{
    auto *parts = static_cast<Parts *>(self);
    try {
        parts->turn();
    } catch (const std::exception &failure) {
        parts->in_turn = false;
        LOG_TO(parts->shared.messages, platform::log_error, "store client: %s", failure.what());
        const timeval later{1, 0}; // what throws is memory that ran out
        (void)event_add(parts->turn_event.get(), &later);
    }
}

void Client::Parts::turn()
{
    in_turn = true;
    bool more = false;
    for (const auto &entry : databases) {
        more = entry.second->inbox.turn() || more;
    }
    report_connected(more);
    if (more) {
        schedule_turn();
    }
    in_turn = false;
}

// A database that is away holds up those of its server that were asked for later, and no others.
void Client::Parts::report_connected(bool &more)
{
    std::set<const store::Server *> held_up;
    for (auto next = requests.begin(); next != requests.end();) {
        Database *database = *next;
        const store::Server *server = &database->calls.server();
        if (held_up.contains(server) || !database->inbox.has_arrived()) {
            held_up.insert(server);
            ++next;
            continue;
        }
        more = true;
        if (platform::is_ending(shared.global)) {
            return;
        }
        next = requests.erase(next);
        database->inbox.notify(
            {ConnectionEvent::Kind::connected, database->calls.number(), {}, false, server->name()});
    }
}

// What has just been read is worked on before the loop asks the system for more, which spares a turn of the
// loop for each message. Work that is left over waits for one: others on the loop must have theirs.
void Client::Parts::schedule_turn()
{
    const timeval at_once{0, 0};
    if (in_turn) {
        (void)event_add(turn_event.get(), &at_once);
    } else {
        event_active(turn_event.get(), EV_TIMEOUT, 0);
    }
}

// Null, with the reason, for a number that is none, which is the caller's mistake and not logged, and for
// settings that are of no use.
Database *Client::Parts::database(int32_t number, std::string &why)
{
    if (number < 0) {
        why = "there is no database " + std::to_string(number);
        return nullptr;
    }
    if (const auto found = databases.find(number); found != databases.end()) {
        return found->second.get();
    }
    if (const auto found = problems.find(number); found != problems.end()) {
        why = found->second;
        return nullptr;
    }
    store::Server *server = server_of(number, why);
    if (server == nullptr) {
        const bool is_known = std::any_of(problems.begin(), problems.end(),
                                          [&](const auto &known) { return known.second == why; });
        problems[number] = why;
        if (!is_known) {
            report(why);
        }
        return nullptr;
    }
    return databases.emplace(number, std::make_unique<Database>(*server, number)).first->second.get();
}

void Client::Parts::begin(Database &database)
{
    database.inbox.begin();
    store::Server &server = database.calls.server();
    if (shared.keeps_functions &&
        std::none_of(keepers.begin(), keepers.end(),
                     [&](const FunctionKeeper &keeper) { return &keeper.server() == &server; })) {
        keepers.emplace_back(server, database.calls.number());
    }
}

// Runs `work(database)`, which returns a status.
template <typename Work>
Status Client::Parts::call(int32_t db, const Work &work)
{
    std::string why;
    Database *found = database(db, why);
    return found == nullptr ? Status{store::invalid, why} : work(*found);
}

Client::Client(vx_global_t *context, Options options)
    : parts_(std::make_unique<Parts>(context, std::move(options)))
{
}

Client::~Client() = default;

Status Client::connect(int32_t db)
{
    return parts_->call(db, [](Database &database) { return database.calls.connect(); });
}

Result<std::optional<Record>> Client::read(int32_t db, const ProtobufCMessage &key)
{
    Result<std::optional<Record>> result;
    static_cast<Status &>(result) = parts_->call(
        db, [&](Database &database) { return store::hgetall(database.calls, key, result.value); });
    return result;
}

Result<bool> Client::exists(int32_t db, const ProtobufCMessage &key)
{
    Result<bool> result;
    static_cast<Status &>(result) = parts_->call(
        db, [&](Database &database) { return store::exists(database.calls, key, result.value); });
    return result;
}

Result<std::vector<LeftOut>> Client::scan(int32_t db, const ProtobufCMessageDescriptor &type,
                                          const std::function<void(Record &&)> &each)
{
    Result<std::vector<LeftOut>> result;
    static_cast<Status &>(result) = parts_->call(
        db, [&](Database &database) { return store::scan(database.calls, type, each, result.value); });
    return result;
}

Status Client::set(int32_t db, const ProtobufCMessage &record)
{
    return parts_->call(db, [&](Database &database) { return store::set(database.calls, record); });
}

Status Client::set_fields(int32_t db, const ProtobufCMessage &record, std::span<const int32_t> fields)
{
    if (fields.empty()) {
        return {store::invalid, "no field is named"};
    }
    return parts_->call(db, [&](Database &database) {
        return store::hmset(database.calls, record, fields.data(), static_cast<int32_t>(fields.size()));
    });
}

Status Client::erase(int32_t db, const ProtobufCMessage &key)
{
    return parts_->call(db, [&](Database &database) { return store::del(database.calls, key); });
}

Status Client::erase_matching(int32_t db, const ProtobufCMessage &key, int32_t key_count)
{
    return parts_->call(db, [&](Database &database) { return store::pdel(database.calls, key, key_count); });
}

Status Client::on_connection(int32_t db, ConnectionHandler handler)
{
    return parts_->call(db, [&](Database &database) {
        database.inbox.set_handler(std::move(handler));
        return Status();
    });
}

Status Client::open(int32_t db)
{
    return parts_->call(db, [&](Database &database) {
        parts_->begin(database);
        parts_->requests.push_back(&database);
        parts_->schedule_turn();
        return Status();
    });
}

Result<Subscription> Client::subscribe(int32_t db, const ProtobufCMessageDescriptor &type,
                                       ChangeHandler handler)
{
    Result<Subscription> result;
    static_cast<Status &>(result) = parts_->call(db, [&](Database &database) {
        parts_->begin(database);
        const auto asked = database.inbox.subscribe(type, std::move(handler));
        result.value.parts_ =
            std::make_unique<Subscription::Parts>(Subscription::Parts{asked, asked->times_asked()});
        return Status();
    });
    return result;
}

Status Client::publish_health(int32_t db)
{
    return parts_->call(db,
                        [&](Database &database) { return parts_->health.emplace(database.calls).begin(); });
}

std::optional<std::chrono::steady_clock::time_point> Client::last_contact(int32_t db) const
{
    const auto found = parts_->databases.find(db);
    return found == parts_->databases.end() ? std::nullopt : found->second->inbox.heard_at();
}

struct Handling::Parts {
    Parts(vx_global_t *context, const std::string &record, uint64_t revision)
        : key(record), handling(context, {platform::Activity::Kind::record, revision, key})
    {
    }

    const std::string key; // the activity refers to it
    const platform::Handling handling;
};

Handling::Handling(const Client &client, const std::string &key, uint64_t revision)
    : parts_(std::make_unique<Parts>(client.parts_->shared.global, key, revision))
{
}

Handling::~Handling() = default;

Subscription::Subscription() = default;
Subscription::Subscription(Subscription &&) noexcept = default;

Subscription::~Subscription()
{
    cancel();
}

Subscription &Subscription::operator=(Subscription &&other) noexcept
{
    if (this != &other) {
        cancel();
        parts_ = std::move(other.parts_);
    }
    return *this;
}

void Subscription::cancel() noexcept
{
    const auto asked = parts_ == nullptr ? nullptr : parts_->asked.lock();
    if (asked != nullptr && asked->times_asked() == parts_->times_asked) {
        asked->cancel();
    }
    parts_.reset();
}

} // namespace store
