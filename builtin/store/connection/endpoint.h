// Where the store is, and as whom to go there.
//
// `unix:/path`, `tcp:host:port`, `tcp:[::1]:6379`, `sentinel:NAME@host:port,host:port`. A form is known by
// the word before the first colon, so that more forms can join.
#ifndef CONNECTION_ENDPOINT_H
#define CONNECTION_ENDPOINT_H

#include <optional>
#include <string>
#include <vector>

namespace store
{

struct HostPort {
    std::string host; // a name or an address, IPv6 without brackets
    int port = 0;

    friend bool operator==(const HostPort &, const HostPort &) = default;
};

// "host:port", IPv6 in brackets: as it is configured.
std::string place_text(const HostPort &place);

// One of three: a unix socket (`path`), a server (`host` and `port`), or a group of servers (`group` and
// `sentinels`) whose master has to be asked for before there is a server to go to.
struct Endpoint {
    std::string text; // as configured, for messages
    std::string path; // of the unix socket; else empty
    std::string host;
    int port = 0;
    std::string group;               // the name that the sentinels watch it by; else empty
    std::vector<HostPort> sentinels; // in the order configured, each one once

    friend bool operator==(const Endpoint &, const Endpoint &) = default;
};

struct Credentials {
    std::string user;     // empty: the server's default user
    std::string password; // empty: none is sent
    // The same for the sentinels, who have users of their own.
    std::string sentinel_user;
    std::string sentinel_password;

    friend bool operator==(const Credentials &, const Credentials &) = default;
};

// Reads an endpoint. Returns nothing, and says in `why` what is wrong and what would be right, when it is
// none.
std::optional<Endpoint> parse_endpoint(const std::string &text, std::string &why);

// Reads a file of the lines `user NAME` and `password SECRET`, for the sentinels `sentinel-user NAME` and
// `sentinel-password SECRET`; an empty path gives empty credentials. Returns nothing, and says why, when the
// file can't be read or is no regular file, others have any right to it, a line is none of these, or a user
// has no password.
std::optional<Credentials> read_credentials(const std::string &path, std::string &why);

} // namespace store

#endif
