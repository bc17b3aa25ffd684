// The store client of one platform context; see the header.
#include "store/client.h"

#include <csignal>
#include <exception>

#include "log/platform_log.h"
#include "loop/platform_context.h"
#include "store/connection/configuration.h"

namespace vx_mom
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

} // namespace

Client::Client(vx_global_t *global)
    : shared_{global, platform::event_base_of(global), {}, Outage(configured_deadline()),
              {},     [this] {
          schedule_turn(); }},
      turn_event_(event_new(shared_.base, -1, 0, turn_cb, this))
{
    platform::log_open(platform::module_of(global));
    ignore_broken_pipes();
    std::string why;
    usable_ = configure(why);
    if (!usable_) {
        PLATFORM_LOG(platform::log_error, "store client: %s", why.c_str());
        platform::tell_starter("store client: " + why);
    }
}

Database *Client::database(int32_t number)
{
    if (!usable_ || number < 0) {
        return nullptr;
    }
    std::unique_ptr<Database> &place = databases_[number];
    if (place == nullptr) {
        place = std::make_unique<Database>(shared_, number);
    }
    return place.get();
}

void Client::call_when_connected(Database &database, vx_mom_connect_f callback, void *arg)
{
    requests_.push_back({&database, callback, arg});
    database.begin();
    schedule_turn();
}

Client *Client::of(vx_global_t *global)
{
    if (global == nullptr) {
        return nullptr;
    }
    std::shared_ptr<void> &slot = platform::slot_of(global, platform::Slot::store_client);
    if (slot == nullptr) {
        slot = std::make_shared<Client>(global);
    }
    return static_cast<Client *>(slot.get());
}

void Client::turn_cb(int /*fd*/, short /*what*/, void *self)
{
    auto *client = static_cast<Client *>(self);
    try {
        client->turn();
    } catch (const std::exception &failure) {
        client->in_turn_ = false;
        PLATFORM_LOG(platform::log_error, "store client: %s", failure.what());
    }
}

void Client::turn()
{
    in_turn_ = true;
    bool more = false;
    for (const auto &entry : databases_) {
        more = entry.second->turn() || more;
    }
    while (!requests_.empty() && requests_.front().database->has_arrived()) {
        const ConnectRequest request = requests_.front();
        requests_.pop_front();
        if (request.callback != nullptr) {
            (void)request.callback(shared_.global, request.arg);
        }
        more = true;
    }
    if (more) {
        schedule_turn();
    }
    in_turn_ = false;
}

// What has just been read is worked on before the loop asks the system for more, which spares a turn of the
// loop for each message. Work that is left over waits for one: others on the loop must have theirs.
void Client::schedule_turn()
{
    const timeval at_once{0, 0};
    if (in_turn_) {
        (void)event_add(turn_event_.get(), &at_once);
    } else {
        event_active(turn_event_.get(), EV_TIMEOUT, 0);
    }
}

bool Client::configure(std::string &why)
{
    const auto place = configured_place(why);
    if (!place) {
        return false;
    }
    shared_.visitor = {place->endpoint, place->credentials, platform::module_of(shared_.global)};
    const ReplicaSetting replicas = configured_replicas();
    shared_.replicas.count = replicas.count;
    shared_.replicas.limit = replicas.limit;
    return true;
}

} // namespace vx_mom
