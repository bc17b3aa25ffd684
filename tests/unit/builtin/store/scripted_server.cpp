// A peer in a server's place; see the header.
#include "scripted_server.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace store_test
{

namespace
{

// Takes a command off the front of what was received; false when it is not there as a whole.
bool next_command(std::string &received, std::vector<std::string> &command)
{
    size_t at = 0;
    const auto number = [&] {
        const size_t end = received.find("\r\n", at);
        if (end == std::string::npos) {
            return -1;
        }
        const int value = std::stoi(received.substr(at + 1, end - at - 1));
        at = end + 2;
        return value;
    };
    const int words = number();
    for (int i = 0; i < words; i++) {
        const int length = number();
        if (length < 0 || received.size() < at + static_cast<size_t>(length) + 2) {
            return false;
        }
        command.push_back(received.substr(at, static_cast<size_t>(length)));
        at += static_cast<size_t>(length) + 2;
    }
    received.erase(0, at);
    return words > 0;
}

} // namespace

std::string bulk(const std::string &text)
{
    return "$" + std::to_string(text.size()) + "\r\n" + text + "\r\n";
}

std::string array(const std::vector<std::string> &parts)
{
    std::string bytes = "*" + std::to_string(parts.size()) + "\r\n";
    for (const std::string &part : parts) {
        bytes += part;
    }
    return bytes;
}

std::string ordinary_answer(const std::vector<std::string> &command)
{
    const std::string &name = command[0];
    if (name == "INFO") {
        return command[1] == "server" ? bulk("redis_version:7.0.15\r\nrun_id:p1\r\n")
                                      : bulk("role:master\r\nmaster_replid:d\r\n");
    }
    if (name == "GET") {
        return "$-1\r\n";
    }
    if (name == "HGETALL") {
        return "*0\r\n";
    }
    if (name == "PING") {
        return command.size() == 1 ? "+PONG\r\n" : bulk(command[1]);
    }
    return "+OK\r\n";
}

ScriptedServer::ScriptedServer(Script script)
    : script_(std::move(script)), listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    endpoint().path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener_, 8) != 0 || pipe(ends_) != 0) {
        throw std::runtime_error("no scripted server can listen");
    }
    thread_ = std::thread([this] { serve(); });
}

ScriptedServer::~ScriptedServer()
{
    (void)close(ends_[1]);
    thread_.join();
    (void)close(ends_[0]);
    (void)close(listener_);
}

store::Endpoint ScriptedServer::endpoint() const
{
    store::Endpoint endpoint;
    endpoint.path = folder_.path("s");
    endpoint.text = "unix:" + endpoint.path;
    return endpoint;
}

std::vector<std::string> ScriptedServer::commands()
{
    const std::lock_guard lock(mutex_);
    return commands_;
}

void ScriptedServer::serve()
{
    std::vector<Peer> peers;
    for (;;) {
        std::vector<pollfd> watched{{ends_[0], POLLIN, 0}, {listener_, POLLIN, 0}};
        for (const Peer &peer : peers) {
            watched.push_back({peer.fd, POLLIN, 0});
        }
        (void)poll(watched.data(), watched.size(), -1);
        if (watched[0].revents != 0) {
            break;
        }
        std::vector<Peer> staying;
        for (size_t i = 0; i < peers.size(); i++) {
            if (watched[i + 2].revents == 0 || serve(peers[i])) {
                staying.push_back(std::move(peers[i]));
            } else {
                (void)close(peers[i].fd);
            }
        }
        peers = std::move(staying);
        if (watched[1].revents != 0) {
            peers.push_back({accept(listener_, nullptr, nullptr), {}});
        }
    }
    for (const Peer &peer : peers) {
        (void)close(peer.fd);
    }
}

bool ScriptedServer::serve(Peer &peer)
{
    std::array<char, 65536> part;
    const ssize_t got = read(peer.fd, part.data(), part.size());
    if (got <= 0) {
        return false;
    }
    peer.received.append(part.data(), static_cast<size_t>(got));
    for (std::vector<std::string> command; next_command(peer.received, command); command.clear()) {
        std::string text;
        for (const std::string &word : command) {
            text += (text.empty() ? "" : " ") + word;
        }
        {
            const std::lock_guard lock(mutex_);
            commands_.push_back(text);
        }
        const auto bytes = script_(command);
        if (!bytes || send(peer.fd, bytes->data(), bytes->size(), MSG_NOSIGNAL) < 0) {
            return false;
        }
    }
    return true;
}

} // namespace store_test
