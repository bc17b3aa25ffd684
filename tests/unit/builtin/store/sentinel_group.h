// A private group of store servers with sentinels for tests: a master, its replicas, and those who watch
// them, all on free ports of the loopback interface, stopped by the destructor.
//
// Real sentinels and no stand-ins: what they say in the middle of a fail-over is what has to be got right.
// On TCP, because sentinels tell places as addresses; a unix socket has none.
#ifndef SENTINEL_GROUP_H
#define SENTINEL_GROUP_H

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "server_process.h"

namespace store_test
{

class SentinelGroup
{
public:
    struct Options {
        size_t replicas = 2;
        size_t sentinels = 3;
        // How long the master has to be silent before it is replaced. Up to a second, sentinels wait just as
        // long with their first question to a server that was promoted, and often take it for dead at once.
        // To be long where nothing is to be replaced: on a busy machine a server may well be silent for a
        // second.
        std::chrono::milliseconds down_after{1500};
        // How long an attempt to replace it may take; after twice that there is another one.
        std::chrono::milliseconds failover_timeout{2000};
        std::string sentinel_password; // of the sentinels' default user
        // More users of the sentinels, as "NAME RULES..."
        std::vector<std::string> sentinel_users;
    };

    // Starts the group and waits until each sentinel sees the master and, if there are replicas, all know
    // each other, so that a fail-over is possible. Throws when that does not come about.
    SentinelGroup();
    explicit SentinelGroup(const Options &options);
    SentinelGroup(const SentinelGroup &) = delete;
    SentinelGroup &operator=(const SentinelGroup &) = delete;
    ~SentinelGroup();

    static constexpr const char *name = "card";
    const std::string &folder() const { return folder_; }
    std::string endpoint() const;                    // of the group
    std::string server_address(size_t server) const; // "127.0.0.1:port"; server 0 begins as the master
    std::string sentinel_address(size_t sentinel) const;
    int server_port(size_t server) const;

    // The server that is the master by its own word; none while there is none, or two say so.
    std::optional<size_t> master();

    void kill_server(size_t server);
    // Starts a killed one at its old place, empty, as what it was at the beginning: server 0 as a master.
    void start_server(size_t server);
    void freeze_server(size_t server);
    void thaw_server(size_t server);
    void kill_sentinel(size_t sentinel);
    void freeze_sentinel(size_t sentinel);
    void thaw_sentinel(size_t sentinel);

    // Run a command there; see ServerProcess::run().
    std::string run(size_t server, const std::vector<std::string> &command);
    std::string run_sentinel(size_t sentinel, const std::vector<std::string> &command);

private:
    void add_server();
    void add_sentinel(const Options &options);
    void wait_until_acquainted(const Options &options);

    std::string folder_;
    std::vector<std::unique_ptr<ServerProcess>> servers_;
    std::vector<std::unique_ptr<ServerProcess>> sentinels_;
};

} // namespace store_test

#endif
