// Serves the metrics over HTTP, on the recorder's own loop.
#include "metrics_server.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "base/text.h"

namespace recorder
{

namespace
{

constexpr std::chrono::milliseconds pause_without_descriptors{1000};
constexpr int64_t highest_port = 65535;

[[noreturn]] void fail(const std::string &reason)
{
    throw std::runtime_error(reason);
}

sockaddr_in address_of(const std::string &text)
{
    const std::size_t colon = text.rfind(':');
    sockaddr_in address{};
    address.sin_family = AF_INET;
    const auto port =
        colon == std::string::npos ? std::nullopt : cg::to_number(text.substr(colon + 1), 0, highest_port);
    if (!port || inet_pton(AF_INET, text.substr(0, colon).c_str(), &address.sin_addr) != 1) {
        fail("not an address");
    }
    address.sin_port = htons(static_cast<uint16_t>(*port));
    return address;
}

// A port that a recorder has just left may be used again at once; one that another program has may not.
platform::Descriptor bound_socket(const std::string &text)
{
    const sockaddr_in address = address_of(text);
    platform::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    if (!socket || setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        ::listen(socket.get(), SOMAXCONN) != 0) {
        fail(std::generic_category().message(errno));
    }
    return socket;
}

bool would_block()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

bool is_whole(const std::string &request)
{
    return request.find("\r\n\r\n") != std::string::npos || request.find("\n\n") != std::string::npos;
}

std::string response(const char *status, const std::string &body)
{
    return std::string("HTTP/1.1 ") + status +
           "\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\nContent-Length: " +
           std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
}

} // namespace

MetricsServer::MetricsServer(vx_global_t *context, const std::string &address,
                             std::function<std::string()> page, const Limits &limits)
    : context_(context), page_(std::move(page)), limits_(limits), socket_(bound_socket(address))
{
    listen();
}

uint16_t MetricsServer::port() const
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    (void)getsockname(socket_.get(), reinterpret_cast<sockaddr *>(&address), &size); // of a bound socket
    return ntohs(address.sin_port);
}

void MetricsServer::listen()
{
    listening_ =
        platform::Watch(context_, socket_.get(), platform::Watch::Until::readable, [this] { accept(); });
}

// Without a descriptor for it the connection stays in the queue, and the loop would be called at once again.
void MetricsServer::accept()
{
    platform::Descriptor socket(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (socket) {
        serve(std::move(socket));
    } else if (!would_block() && errno != ECONNABORTED) {
        listening_.cancel();
        pause_ = platform::Timer(context_, pause_without_descriptors, [this] { listen(); });
    }
}

void MetricsServer::serve(platform::Descriptor socket)
{
    if (connections_.size() >= limits_.connections) {
        close(connections_.begin());
    }
    const Place place = connections_.insert(connections_.end(), Connection{std::move(socket)});
    place->deadline = platform::Timer(context_, limits_.request, [this, place] { close(place); });
    place->watch = platform::Watch(context_, place->socket.get(), platform::Watch::Until::readable,
                                   [this, place] { read(place); });
}

void MetricsServer::read(Place place)
{
    std::array<char, 4096> bytes{};
    const ssize_t count = recv(place->socket.get(), bytes.data(), bytes.size(), 0);
    if (count <= 0) {
        if (count == 0 || !would_block()) {
            close(place);
        }
        return;
    }
    place->request.append(bytes.data(), static_cast<std::size_t>(count));
    if (is_whole(place->request)) {
        answer(place, answer_to(place->request));
    } else if (place->request.size() > limits_.request_bytes) {
        answer(place, response("431 Request Header Fields Too Large", ""));
    }
}

std::string MetricsServer::answer_to(const std::string &request) const
{
    const std::vector<std::string> words = cg::split(request.substr(0, request.find_first_of("\r\n")), ' ');
    if (words.size() != 3 || !words[2].starts_with("HTTP/1.")) {
        return response("400 Bad Request", "");
    }
    if (words[1].substr(0, words[1].find('?')) != "/metrics") {
        return response("404 Not Found", "metrics are at /metrics\n");
    }
    std::string whole = response("200 OK", page_());
    if (words[0] == "GET") {
        return whole;
    }
    return words[0] == "HEAD" ? whole.substr(0, whole.find("\r\n\r\n") + 4)
                              : response("405 Method Not Allowed", "");
}

void MetricsServer::answer(Place place, const std::string &answer)
{
    place->answer = answer;
    place->deadline = platform::Timer(context_, limits_.answer, [this, place] { close(place); });
    place->watch = platform::Watch(context_, place->socket.get(), platform::Watch::Until::writable,
                                   [this, place] { write(place); });
}

void MetricsServer::write(Place place)
{
    const ssize_t count = send(place->socket.get(), place->answer.data(), place->answer.size(), MSG_NOSIGNAL);
    if (count < 0 && would_block()) {
        return;
    }
    if (count > 0) {
        place->answer.erase(0, static_cast<std::size_t>(count));
    }
    if (count <= 0 || place->answer.empty()) {
        close(place);
    }
}

} // namespace recorder
