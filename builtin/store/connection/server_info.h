// What a server says of itself: which version, which process, which line of descent of its data, which role.
#ifndef CONNECTION_SERVER_INFO_H
#define CONNECTION_SERVER_INFO_H

#include <string>
#include <vector>

#include "store/connection/stream.h"

namespace store
{

struct ServerInfo {
    std::string version;
    std::string process; // another one with every start of a server
    std::string descent; // changes when a replica takes over, and when a server becomes another's replica
    bool is_replica = false;

    // Both: a server that became a replica and was promoted again is the same process with other data.
    [[nodiscard]] std::string run() const { return process + ':' + descent; }
};

// The commands that ask for it.
inline const std::vector<Command> info_questions{{"INFO", "server"}, {"INFO", "replication"}};

inline constexpr int least_version = 7; // the first with functions

// The first number of a version; 0 when it begins with none.
int major_version(const std::string &version);

// Reads the replies to these two. Returns false, and says why, when they are none or the server is too old.
bool read_server_info(const redisReply *server, const redisReply *replication, ServerInfo &info,
                      std::string &why);

} // namespace store

#endif
