// What the databases of a client share: all of them, and those that are on one server.
//
// An outage is of one server: an answer of another one does not end it, and it uses up nothing of another
// one's budget.
#ifndef STORE_SERVER_H
#define STORE_SERVER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "log/messages.h"
#include "store/connection/configuration.h"
#include "store/connection/outage.h"
#include "store/connection/sync_connection.h"
#include "vx_thread.h"

namespace store
{

struct Server;

// What all databases of a client share. It outlives them.
struct Shared {
    vx_global_t *global;
    event_base *base;
    platform::Messages messages;
    std::chrono::milliseconds budget;    // of an outage
    std::function<void()> schedule_turn; // has turn() called soon, from the loop
    std::string name{};                  // as the servers list the client
    std::string instance{};              // of the client, which its marks begin with
    uint64_t writes = 0;                 // that have been given a mark
    bool keeps_functions = false;        // as in Options
    size_t servers = 0;                  // that are in use
    const Server *health_at = nullptr;   // which server the process's health is published at
};

// A server, or a group with a master, and what the databases there share. It outlives them.
struct Server {
    // shared_by_all  outlives the object.
    Server(Shared &shared_by_all, const StorePlace &place)
        : shared(shared_by_all), identity{place.endpoint, place.credentials, shared.name},
          outage(shared.budget, shared.messages), at_(" at " + place.endpoint.text)
    {
        shared.servers++;
    }

    bool is_at(const StorePlace &place) const
    {
        return StorePlace{identity.endpoint, identity.credentials} == place;
    }
    // For messages, " at ENDPOINT"; empty while there is no other server that it could be.
    const char *at() const { return shared.servers > 1 ? at_.c_str() : ""; }
    // The endpoint, likewise.
    std::string name() const { return shared.servers > 1 ? identity.endpoint.text : ""; }

    Shared &shared;
    const ClientIdentity identity;
    Outage outage;
    // Since when it has no functions and refuses to be given them.
    std::optional<Clock::time_point> lacks_functions_since{};
    std::string starter_problem{}; // the last problem printed for the one who starts the program

private:
    std::string at_;
};

} // namespace store

#endif
