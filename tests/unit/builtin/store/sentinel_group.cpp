// A private group of store servers with sentinels; see the header.
#include "sentinel_group.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace store_test
{

namespace
{

std::string make_folder()
{
    const char *base = std::getenv("TMPDIR");
    std::string pattern = std::string(base == nullptr ? "/tmp" : base) + "/group-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("no folder can be made: " + pattern);
    }
    return pattern;
}

// The value after a name in a list of names and values, one in each line.
std::string value_in(const std::string &lines, const std::string &value_name)
{
    const size_t at = ("\n" + lines).find("\n" + value_name + "\n");
    if (at == std::string::npos) {
        return "";
    }
    const size_t begin = at + value_name.size() + 1;
    return lines.substr(begin, lines.find('\n', begin) - begin);
}

} // namespace

SentinelGroup::SentinelGroup() : SentinelGroup(Options()) {}

SentinelGroup::SentinelGroup(const Options &options) : folder_(make_folder())
{
    for (size_t i = 0; i < options.replicas + 1; i++) {
        add_server();
    }
    for (size_t i = 0; i < options.sentinels; i++) {
        add_sentinel(options);
    }
    wait_until_acquainted(options);
}

SentinelGroup::~SentinelGroup()
{
    servers_.clear();
    sentinels_.clear();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void SentinelGroup::add_server()
{
    std::string settings = "databases 64\nsave \"\"\nappendonly no\nrepl-diskless-sync-delay 0\n";
    if (!servers_.empty()) {
        settings +=
            std::string("replicaof ") + ServerProcess::loopback + " " + std::to_string(server_port(0)) + "\n";
    }
    servers_.push_back(
        std::make_unique<ServerProcess>(ServerProcess::Settings{folder_, false, settings, ""}));
}

void SentinelGroup::add_sentinel(const Options &options)
{
    std::string settings;
    const auto add = [&settings](const std::string &what, const std::string &value) {
        settings.append("sentinel ").append(what).append(" ").append(name).append(" " + value + "\n");
    };
    add("monitor", std::string(ServerProcess::loopback) + " " + std::to_string(server_port(0)) + " " +
                       std::to_string(options.sentinels / 2 + 1));
    add("down-after-milliseconds", std::to_string(options.down_after.count()));
    add("failover-timeout", std::to_string(options.failover_timeout.count()));
    add("parallel-syncs", "2");
    if (!options.sentinel_password.empty()) {
        settings += "requirepass " + options.sentinel_password + "\nsentinel sentinel-pass " +
                    options.sentinel_password + "\n";
    }
    for (const std::string &user : options.sentinel_users) {
        settings += "user " + user + "\n";
    }
    sentinels_.push_back(std::make_unique<ServerProcess>(
        ServerProcess::Settings{folder_, true, settings, options.sentinel_password}));
}

void SentinelGroup::wait_until_acquainted(const Options &options)
{
    const std::string replicas = std::to_string(options.replicas);
    const std::string others = std::to_string(options.sentinels - 1);
    for (size_t i = 0; i < options.sentinels; i++) {
        const bool known = eventually([&] {
            const std::string master = run_sentinel(i, {"SENTINEL", "MASTER", name});
            const bool sees_master =
                value_in(master, "flags") == "master" && !value_in(master, "runid").empty();
            // That sentinels hear of each other takes seconds; without a replica there is nothing to agree
            // on.
            return sees_master &&
                   (options.replicas == 0 || (value_in(master, "num-slaves") == replicas &&
                                              value_in(master, "num-other-sentinels") == others));
        });
        if (!known) {
            throw std::runtime_error("the group does not get acquainted in " + folder_);
        }
    }
}

std::string SentinelGroup::endpoint() const
{
    std::string text = std::string("sentinel:") + name;
    for (size_t i = 0; i < sentinels_.size(); i++) {
        text += (i == 0 ? "@" : ",") + sentinel_address(i);
    }
    return text;
}

std::string SentinelGroup::server_address(size_t server) const
{
    return servers_.at(server)->address();
}

std::string SentinelGroup::sentinel_address(size_t sentinel) const
{
    return sentinels_.at(sentinel)->address();
}

int SentinelGroup::server_port(size_t server) const
{
    return servers_.at(server)->port();
}

std::optional<size_t> SentinelGroup::master()
{
    std::optional<size_t> found;
    for (size_t i = 0; i < servers_.size(); i++) {
        if (run(i, {"ROLE"}).rfind("master\n", 0) == 0) {
            if (found) {
                return std::nullopt;
            }
            found = i;
        }
    }
    return found;
}

void SentinelGroup::kill_server(size_t server)
{
    servers_.at(server)->kill();
}

void SentinelGroup::start_server(size_t server)
{
    if (!servers_.at(server)->start()) {
        throw std::runtime_error("a server does not come back at " + server_address(server));
    }
}

void SentinelGroup::freeze_server(size_t server)
{
    servers_.at(server)->freeze();
}

void SentinelGroup::thaw_server(size_t server)
{
    servers_.at(server)->thaw();
}

void SentinelGroup::kill_sentinel(size_t sentinel)
{
    sentinels_.at(sentinel)->kill();
}

void SentinelGroup::freeze_sentinel(size_t sentinel)
{
    sentinels_.at(sentinel)->freeze();
}

void SentinelGroup::thaw_sentinel(size_t sentinel)
{
    sentinels_.at(sentinel)->thaw();
}

std::string SentinelGroup::run(size_t server, const std::vector<std::string> &command)
{
    return servers_.at(server)->run(command);
}

std::string SentinelGroup::run_sentinel(size_t sentinel, const std::vector<std::string> &command)
{
    return sentinels_.at(sentinel)->run(command);
}

} // namespace store_test
