// A peer in a server's place that says what a test wants it to: for what a real server says only in passing,
// or never.
#ifndef SCRIPTED_SERVER_H
#define SCRIPTED_SERVER_H

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "store/connection/endpoint.h"
#include "unit/support/folder.h"

namespace store_test
{

std::string bulk(const std::string &text);
std::string array(const std::vector<std::string> &parts);

// What an ordinary server with no data answers, as bytes.
std::string ordinary_answer(const std::vector<std::string> &command);

class ScriptedServer
{
public:
    // Bytes to answer a command with; nothing hangs up.
    using Script = std::function<std::optional<std::string>(const std::vector<std::string> &command)>;

    // Serves on a unix socket in a thread of its own, which calls the script.
    explicit ScriptedServer(Script script = ordinary_answer);
    ScriptedServer(const ScriptedServer &) = delete;
    ScriptedServer &operator=(const ScriptedServer &) = delete;
    ~ScriptedServer();

    store::Endpoint endpoint() const;
    // The commands so far, words joined by blanks.
    std::vector<std::string> commands();

private:
    struct Peer {
        int fd;
        std::string received;
    };
    void serve();
    bool serve(Peer &peer);

    Script script_;
    cg::Folder folder_;
    int listener_;
    int ends_[2]{};
    std::mutex mutex_;
    std::vector<std::string> commands_;
    std::thread thread_;
};

} // namespace store_test

#endif
