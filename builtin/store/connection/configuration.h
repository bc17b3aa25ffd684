// What the settings say about the store, for each of its databases.
//
// Apart from the client, so that a tool can ask what is wrong with them before a client exists and says it
// its own way.
//
// Where a database is, as whom to go there, and how many replicas have to have its writes may be set for it
// alone (VX_MOM_ENDPOINT_28): see numbered_setting(). The deadlines are the same for all.
#ifndef CONNECTION_CONFIGURATION_H
#define CONNECTION_CONFIGURATION_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "loop/settings.h"
#include "store/connection/endpoint.h"

namespace store
{

// A server, or a group of servers, and as whom to go there. Databases whose places are equal are on one
// server; two names of one server are two places.
struct StorePlace {
    Endpoint endpoint;
    Credentials credentials;

    friend bool operator==(const StorePlace &, const StorePlace &) = default;
};

// Reads an endpoint and a file of credentials (an empty path: none). Returns nothing, and says in `why` what
// is wrong and what would be right, when one of them is of no use.
std::optional<StorePlace> place_of(const std::string &endpoint, const std::string &credential_file,
                                   std::string &why);

// VX_MOM_ENDPOINT as it is for a database, or where the store is by default.
platform::Setting configured_endpoint(int32_t db);
// VX_MOM_AUTH_FILE as it is for a database: the path of the file, or nothing.
platform::Setting configured_credentials(int32_t db);

// Databases that are at one endpoint, with any credentials: a server, or a group of servers.
struct ConfiguredServer {
    std::string endpoint; // as configured, for messages
    std::set<int32_t> databases;
};

// Where these databases are, in the order of the lowest of each. Only the texts of the settings are compared,
// so that they may be wrong.
std::vector<ConfiguredServer> configured_servers(const std::set<int32_t> &databases);

// Reads both; as above. `why` begins with the setting's name if that has a number.
std::optional<StorePlace> configured_place(int32_t db, std::string &why);

// Reads VX_MOM_DEADLINE_MS; a value that is none is reported and the default is used.
std::chrono::milliseconds configured_deadline();

// How many replicas a write waits for, and for how long.
struct ReplicaSetting {
    int count;
    std::chrono::milliseconds limit;

    friend bool operator==(const ReplicaSetting &, const ReplicaSetting &) = default;
};

// Reads VX_MOM_WAIT_REPLICAS as it is for a database, and VX_MOM_WAIT_MS; as above.
ReplicaSetting configured_replicas(int32_t db);

// Returns one line that says what is wrong with the settings for these databases and what would be right;
// empty when nothing is. Unlike the client, for whom a wrong deadline is no reason not to serve, it finds
// fault with that too.
std::string configuration_problem(const std::set<int32_t> &databases);

} // namespace store

#endif
