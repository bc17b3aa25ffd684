// Reading what a server says of itself; see the header.
#include "store/connection/server_info.h"

#include <charconv>
#include <string_view>

namespace store
{

namespace
{

// The value of a line `name:value`; empty when there is none.
std::string value_of(std::string_view text, std::string_view name)
{
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.size() > name.size() && line.substr(0, name.size()) == name && line[name.size()] == ':') {
            line.remove_prefix(name.size() + 1);
            return std::string(line.substr(0, line.find('\r')));
        }
    }
    return {};
}

} // namespace

int major_version(const std::string &version)
{
    int major = 0;
    (void)std::from_chars(version.data(), version.data() + version.size(), major);
    return major;
}

bool read_server_info(const redisReply *server, const redisReply *replication, ServerInfo &info,
                      std::string &why)
{
    for (const redisReply *reply : {server, replication}) {
        if (is_error(reply)) {
            why = "the store server refuses to say what it is: " + text_of(reply);
            return false;
        }
    }
    info.version = value_of(text_of(server), "redis_version");
    info.process = value_of(text_of(server), "run_id");
    info.descent = value_of(text_of(replication), "master_replid");
    info.is_replica = value_of(text_of(replication), "role") != "master";
    if (info.version.empty() || info.process.empty()) {
        why = "this is no store server: it does not tell its version";
        return false;
    }
    if (major_version(info.version) < least_version) {
        why = "the store server's version is " + info.version + ": " + std::to_string(least_version) +
              ".0 or newer is needed";
        return false;
    }
    return true;
}

} // namespace store
