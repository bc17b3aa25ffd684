// The servers behind a place: one, or those of a group, each to be inspected for itself.
//
// What the store client needs of a group is its master. Users and settings are each server's own, and a
// replica whose users are wrong shows only after a fail-over; so who looks after the servers looks at all of
// them.
#ifndef INSPECT_GROUP_H
#define INSPECT_GROUP_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "store/connection/configuration.h"

namespace store
{

struct Replica {
    HostPort place;
    bool is_online = false; // the master sends it what is written
};

// The endpoint of a server at a place, "tcp:HOST:PORT".
Endpoint endpoint_at(const HostPort &place);

// The replicas in a master's INFO.
std::vector<Replica> replicas_in(const std::string &info);

// What one sentinel of a group says.
struct SentinelReport {
    HostPort place;
    std::optional<HostPort> master; // nothing when it names none, or does not answer
    std::string words;              // one line that begins with its place
};

// Asks each sentinel of a group for itself, so that one that is silent or of another opinion shows beside the
// others. They are asked at the same time, and waited for up to the limit.
std::vector<SentinelReport> ask_sentinels(const StorePlace &group, std::chrono::milliseconds limit);

// The servers at a place, each with an endpoint of its own: the one that it names, or a group's master, as
// its sentinels have it, and then the replicas, as the master has them. Waits up to the limit for each
// answer. Returns nothing, and says in `why` what the sentinels or the master said, when they cannot be
// learnt.
std::optional<std::vector<Endpoint>> servers_at(const StorePlace &place, std::chrono::milliseconds limit,
                                                std::string &why);

} // namespace store

#endif
