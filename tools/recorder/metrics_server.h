// Serves the metrics over HTTP, on the recorder's own loop.
//
// Any process of the machine may connect, so nothing that a client does or leaves undone may keep the others
// from their answer: no connection has a thread, each has a deadline for its request and one for its answer,
// and when there are too many the oldest gives way. A library's server was rejected: those at hand give each
// connection a thread of a small pool, or measure only the time since the last byte and stop accepting at
// their limit, so some bytes now and then hold it for ever. What a metrics page needs of HTTP is one line.
#ifndef RECORDER_METRICS_SERVER_H
#define RECORDER_METRICS_SERVER_H

#include <cstdint>
#include <functional>
#include <list>
#include <string>

#include "loop/descriptor.h"
#include "loop/loop.h"

namespace recorder
{

class MetricsServer
{
public:
    struct Limits {
        std::size_t connections = 128;
        std::size_t request_bytes = 8192; // with all header fields
        // From the connection until the whole request is there, and from then until the client has the
        // answer.
        std::chrono::milliseconds request{10'000};
        std::chrono::milliseconds answer{10'000};
    };

    // Serves what `page` returns at /metrics of an address "127.0.0.1:PORT"; port 0: one that the system
    // chooses. Throws std::runtime_error with the reason when it cannot. The context outlives this.
    MetricsServer(vx_global_t *context, const std::string &address, std::function<std::string()> page,
                  const Limits &limits);
    MetricsServer(const MetricsServer &) = delete;
    MetricsServer &operator=(const MetricsServer &) = delete;

    [[nodiscard]] uint16_t port() const;
    // How many clients are connected.
    [[nodiscard]] std::size_t connections() const { return connections_.size(); }

private:
    struct Connection {
        platform::Descriptor socket;
        std::string request{};
        std::string answer{}; // what is still to be sent
        platform::Watch watch{};
        platform::Timer deadline{};
    };
    using Place = std::list<Connection>::iterator;

    void listen();
    void accept();
    void serve(platform::Descriptor socket);
    void read(Place place);
    void answer(Place place, const std::string &answer);
    void write(Place place);
    void close(Place place) { connections_.erase(place); }
    [[nodiscard]] std::string answer_to(const std::string &request) const;

    vx_global_t *context_;
    std::function<std::string()> page_;
    Limits limits_;
    platform::Descriptor socket_;
    platform::Watch listening_;
    platform::Timer pause_;
    std::list<Connection> connections_; // the oldest one first
};

} // namespace recorder

#endif
