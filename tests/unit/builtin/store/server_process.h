// One server or sentinel for tests: configured by lines of text, on a free port of the loopback interface,
// stopped by its destructor.
//
// For groups, whose members tell each other where they are: on unix sockets, as StoreServer, they could not.
#ifndef SERVER_PROCESS_H
#define SERVER_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace store_test
{

// Waits until the condition holds. Returns false when it does not within the limit.
bool eventually(const std::function<bool()> &condition,
                std::chrono::milliseconds limit = std::chrono::seconds(60));

class ServerProcess
{
public:
    struct Settings {
        std::string folder; // where it gets a folder of its own
        bool is_sentinel = false;
        std::string lines;    // of configuration, beyond port and folder
        std::string password; // of its default user, for run()
    };

    static constexpr const char *loopback = "127.0.0.1";

    // Starts it and waits until it answers; on another port as long as the one tried turns out to be taken.
    // Throws when it does not come up.
    explicit ServerProcess(const Settings &settings);
    ServerProcess(const ServerProcess &) = delete;
    ServerProcess &operator=(const ServerProcess &) = delete;
    ~ServerProcess() { kill(); }

    int port() const { return port_; }
    std::string address() const { return std::string(loopback) + ":" + std::to_string(port_); }

    // Starts it as it was configured at the beginning. Returns false when it ends, or another one answers in
    // its place.
    bool start();
    void kill();
    void freeze();
    void thaw();

    // Runs a command and returns the reply as text; see unit/support/raw_command.h.
    std::string run(const std::vector<std::string> &command);

private:
    [[noreturn]] void become() const;
    bool has_ended();

    Settings settings_;
    std::string folder_;
    int port_ = 0;
    pid_t pid_ = -1;
};

} // namespace store_test

#endif
