// What the settings say about the store.
//
// Apart from the client, so that a tool can ask what is wrong with them before a client exists and says it
// its own way.
#ifndef CONNECTION_CONFIGURATION_H
#define CONNECTION_CONFIGURATION_H

#include <chrono>
#include <optional>
#include <string>

#include "store/connection/endpoint.h"

namespace store
{

struct StorePlace {
    Endpoint endpoint;
    Credentials credentials;
};

// Reads an endpoint and a file of credentials (an empty path: none). Returns nothing, and says in `why` what
// is wrong and what would be right, when one of them is of no use.
std::optional<StorePlace> place_of(const std::string &endpoint, const std::string &credential_file,
                                   std::string &why);

// VX_MOM_ENDPOINT, or where the store is by default.
std::string configured_endpoint();

// Reads VX_MOM_ENDPOINT and the file that VX_MOM_AUTH_FILE names; as above.
std::optional<StorePlace> configured_place(std::string &why);

// Reads VX_MOM_DEADLINE_MS; a value that is none is reported and the default is used.
std::chrono::milliseconds configured_deadline();

// How many replicas a write waits for, and for how long.
struct ReplicaSetting {
    int count;
    std::chrono::milliseconds limit;
};

// Reads VX_MOM_WAIT_REPLICAS and VX_MOM_WAIT_MS; as above.
ReplicaSetting configured_replicas();

// Returns one line that says what is wrong with these settings and what would be right; empty when nothing
// is. Unlike the client, for whom a wrong deadline is no reason not to serve, it finds fault with that too.
std::string configuration_problem();

} // namespace store

#endif
