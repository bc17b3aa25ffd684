// Where the store is, and as whom to go there.
//
// `unix:/path`, `tcp:host:port`, `tcp:[::1]:6379`. A form is known by the word before the first colon, so
// that more forms can join.
#ifndef VX_MOM_ENDPOINT_H
#define VX_MOM_ENDPOINT_H

#include <optional>
#include <string>

namespace vx_mom
{

struct Endpoint {
    std::string text; // as configured, for messages
    std::string path; // of the unix socket; empty for TCP
    std::string host;
    int port = 0;
};

struct Credentials {
    std::string user;     // empty: the server's default user
    std::string password; // empty: none is sent
};

// Reads an endpoint. Returns nothing, and says in `why` what is wrong and what would be right, when it is
// none.
std::optional<Endpoint> parse_endpoint(const std::string &text, std::string &why);

// Reads a file of the lines `user NAME` and `password SECRET`; an empty path gives empty credentials. Returns
// nothing, and says why, when the file can't be read, others may read it, or a line is neither.
std::optional<Credentials> read_credentials(const std::string &path, std::string &why);

} // namespace vx_mom

#endif
