// What the sentinels of a group say of its master, and which of them is believed.
//
// Apart from the asking, so that every answer that a sentinel may give, or a peer in its place, is a matter
// of bytes. The newest answer counts and not the first one: a sentinel that was cut off still names the
// master of yesterday, and is as quick as the others.
#ifndef CONNECTION_SENTINEL_VIEW_H
#define CONNECTION_SENTINEL_VIEW_H

#include <hiredis/hiredis.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "store/connection/endpoint.h"

namespace store
{

struct Master {
    Endpoint place;     // `text` is "host:port of GROUP", for messages
    std::string run_id; // of the server's process as the sentinels know it; empty when they don't agree
    // Whether the sentinels see nothing wrong with it: not down, no fail-over going on. One that does not
    // reach the master is outvoted by the others. It is their word of a moment: a master that died just now
    // is agreed upon still.
    bool is_agreed = false;
};

// What one sentinel says of a group.
struct SentinelView {
    enum class Health {
        plain,    // a master and nothing else
        doubtful, // this sentinel does not reach it, or still knows another one's details
        troubled  // they agree that it is down, or are replacing it
    };
    HostPort place;
    int64_t epoch = -1; // of the configuration that made this one the master; -1 when unknown
    std::string run_id; // empty when unknown
    Health health = Health::doubtful;
    std::string flags; // as the sentinel gave them, for messages
};

// Makes a view of the replies to SENTINEL MASTER and, asked after it, SENTINEL GET-MASTER-ADDR-BY-NAME.
// Returns nothing, and says in `problem` why, when they name no master.
std::optional<SentinelView> read_view(const redisReply *details, const redisReply *address,
                                      const std::string &group, std::string &problem);

// Chooses the master that the views stand for: of the highest epoch, and of several in it the one that most
// views name, or the first. Returns nothing when there is no view.
std::optional<Master> choose_master(const std::vector<SentinelView> &views, const std::string &group);

// A stranger's words as part of one line of a message: short, and without control characters.
std::string quotable(std::string text);

} // namespace store

#endif
