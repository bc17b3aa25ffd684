// The store as C++ programs use it: the databases of a client, and their turns on the loop; see the header.
#include "store/client.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <deque>
#include <exception>
#include <map>
#include <optional>
#include <random>
#include <utility>

#include "log/text.h"
#include "loop/platform_context.h"
#include "store/connection/configuration.h"
#include "store/database.h"
#include "store/health_publisher.h"
#include "store/operations.h"

namespace store
{

namespace
{

constexpr int32_t first_database = 1; // where it is, the others are

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

    bool configure(const std::optional<Place> &place);
    static void turn_cb(int fd, short what, void *self);
    void turn();
    void schedule_turn();
    Database *database(int32_t number);
    template <typename Work>
    Status call(int32_t db, const Work &work);

    store::Shared shared;
    std::optional<store::Server> server;
    std::string problem; // of the settings; empty: they are in order
    bool in_turn = false;
    platform::Event turn_event;
    std::map<int32_t, std::unique_ptr<Database>> databases;
    std::deque<Database *> requests; // for "connected", in the order asked
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
    if (!configure(options.place)) {
        LOG_TO(shared.messages, platform::log_error, "store client: %s", problem.c_str());
        shared.messages.notify_starter("store client: " + problem);
    }
}

bool Client::Parts::configure(const std::optional<Place> &place)
{
    const auto found = place ? store::place_of(place->endpoint, place->credential_file, problem)
                             : store::configured_place(first_database, problem);
    if (!found) {
        problem = platform::visible(problem);
        return false;
    }
    server.emplace(shared, *found, store::configured_replicas(first_database));
    return true;
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
    while (!requests.empty() && requests.front()->inbox.has_arrived()) {
        if (platform::is_ending(shared.global)) {
            more = true;
            break;
        }
        Database *database = requests.front();
        requests.pop_front();
        database->inbox.notify({ConnectionEvent::Kind::connected, database->calls.number()});
        more = true;
    }
    if (more) {
        schedule_turn();
    }
    in_turn = false;
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

Database *Client::Parts::database(int32_t number)
{
    if (!problem.empty() || number < 0) {
        return nullptr;
    }
    std::unique_ptr<Database> &place = databases[number];
    if (place == nullptr) {
        place = std::make_unique<Database>(*server, number);
    }
    return place.get();
}

// Runs `work(database)`, which returns a status. A number that is none is the caller's mistake, and not
// logged.
template <typename Work>
Status Client::Parts::call(int32_t db, const Work &work)
{
    Database *found = database(db);
    if (found == nullptr) {
        return {store::invalid, problem.empty() ? "there is no database " + std::to_string(db) : problem};
    }
    return work(*found);
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
        database.inbox.begin();
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
