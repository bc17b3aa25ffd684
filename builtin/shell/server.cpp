// The debug shell's server.
//
// Everything runs on the daemon's own loop, because handlers read its tables without locks. So no client may
// make it wait: requests are bounded, replies are written as the client reads them, and a connection has a
// deadline for all of it together. A thread with a blocking socket would be less code here and a lock in
// every table.
#include "shell/server.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <string_view>
#include <utility>

#include <event2/buffer.h>
#include <sys/socket.h>
#include <unistd.h>

#include "loop/descriptor.h"

namespace ssat
{
namespace
{

constexpr size_t max_connections = 16;
constexpr timeval pause_without_descriptors{1, 0};

// Root and the user whom this process runs as. The file's mode says the same; it can be changed by hand,
// though.
bool is_permitted(int fd)
{
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        return false;
    }
    return peer.uid == 0 || peer.uid == geteuid();
}

void refuse(int fd)
{
    const std::string reply = encode(
        {std::string(status::denied), "only root and the user whom the process runs as may use its shell"});
    // A new connection has room for so little at once; if it does not, the client sees the connection end.
    send(fd, reply.data(), reply.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

// Whether bytes have come that the loop has not read yet.
bool has_sent(int fd)
{
    char first = 0;
    return recv(fd, &first, 1, MSG_PEEK | MSG_DONTWAIT) > 0;
}

} // namespace

struct Shell::Connection {
    Shell *shell = nullptr;
    platform::BufferEvent buffer;
    platform::Event deadline;
    std::list<Connection>::iterator place;
    bool answered = false;

    // Whether the client has said nothing so far.
    bool is_silent() const
    {
        return !answered && evbuffer_get_length(bufferevent_get_input(buffer.get())) == 0 &&
               !has_sent(bufferevent_getfd(buffer.get()));
    }
};

Shell::Shell(event_base *base, std::string module, timeval deadline)
    : base_(base), module_(std::move(module)), deadline_(deadline),
      original_output_(identity_of(STDOUT_FILENO))
{
}

Shell::~Shell() = default;

int32_t Shell::open(const std::string &path)
{
    int error = 0;
    if (!socket_.open(path, error)) {
        return -error;
    }
    const auto pause_is_over = [](evutil_socket_t, short, void *shell) noexcept {
        static_cast<Shell *>(shell)->resume();
    };
    const auto accepted = [](evconnlistener *, evutil_socket_t client, sockaddr *, int,
                             void *shell) noexcept { static_cast<Shell *>(shell)->accept(client); };
    const auto cannot_accept = [](evconnlistener *, void *arg) noexcept {
        auto *shell = static_cast<Shell *>(arg);
        shell->pause();
        evtimer_add(shell->resume_later_.get(), &pause_without_descriptors);
    };
    resume_later_.reset(evtimer_new(base_, pause_is_over, this));
    // The socket listens already (backlog 0) and stays the socket file's to close.
    listener_.reset(evconnlistener_new(base_, accepted, this, LEV_OPT_CLOSE_ON_EXEC, 0, socket_.fd()));
    if (!resume_later_ || !listener_) {
        return -ENOMEM;
    }
    evconnlistener_set_error_cb(listener_.get(), cannot_accept);
    return 0;
}

void Shell::accept(int fd)
{
    platform::Descriptor owned{fd};
    if (!is_permitted(fd)) {
        refuse(fd);
        return;
    }
    if (connections_.size() >= max_connections) {
        give_place();
    }
    if (serve(fd)) {
        static_cast<void>(owned.release()); // the connection's buffer closes it
    }
}

// Hangs up on the client that has been silent for longest. When all have spoken there is one more, and others
// wait: they are about to be answered.
void Shell::give_place()
{
    const auto silent = std::find_if(connections_.begin(), connections_.end(),
                                     [](const Connection &connection) { return connection.is_silent(); });
    if (silent != connections_.end()) {
        connections_.erase(silent);
    }
}

bool Shell::serve(int fd)
{
    std::list<Connection> fresh(1);
    Connection &connection = fresh.front();
    connection.shell = this;
    connection.place = fresh.begin();
    const auto overdue = [](evutil_socket_t, short, void *arg) noexcept { hang_up(arg); };
    const auto broken = [](bufferevent *, short, void *arg) noexcept { hang_up(arg); };
    const auto readable = [](bufferevent *, void *arg) noexcept {
        auto *asking = static_cast<Connection *>(arg);
        asking->shell->read_request(*asking);
    };
    const auto written = [](bufferevent *, void *arg) noexcept {
        if (static_cast<Connection *>(arg)->answered) {
            hang_up(arg);
        }
    };
    connection.deadline.reset(evtimer_new(base_, overdue, &connection));
    if (!connection.deadline || evtimer_add(connection.deadline.get(), &deadline_) != 0) {
        return false;
    }
    connection.buffer.reset(bufferevent_socket_new(base_, fd, BEV_OPT_CLOSE_ON_FREE));
    if (!connection.buffer) {
        return false;
    }
    bufferevent_setcb(connection.buffer.get(), readable, written, broken, &connection);
    bufferevent_setwatermark(connection.buffer.get(), EV_READ, header_size, header_size + max_request_size);
    bufferevent_enable(connection.buffer.get(), EV_READ | EV_WRITE);
    connections_.splice(connections_.end(), fresh);
    if (connections_.size() > max_connections) {
        pause(); // others wait in the backlog until one has gone
    }
    return true;
}

void Shell::read_request(Connection &connection)
{
    evbuffer *input = bufferevent_get_input(connection.buffer.get());
    const auto *header = reinterpret_cast<const char *>(evbuffer_pullup(input, header_size));
    if (connection.answered || header == nullptr) {
        return;
    }
    const auto length = decode_header({header, header_size});
    if (!length || *length > max_request_size) {
        answer(connection,
               {std::string(status::bad_request),
                length ? "the request is too long" : "the request is not of this shell's protocol"});
        return;
    }
    if (evbuffer_get_length(input) < header_size + *length) {
        return;
    }
    const auto *frame = reinterpret_cast<const char *>(
        evbuffer_pullup(input, static_cast<ev_ssize_t>(header_size + *length)));
    const auto request = decode_fields({frame + header_size, *length});
    answer(connection, request
                           ? commands_.answer(*request, original_output_)
                           : Fields{std::string(status::bad_request), "the request's lengths do not add up"});
}

void Shell::answer(Connection &connection, const Fields &reply)
{
    assert(!connection.answered); // a second reply would be read as a part of the first one
    connection.answered = true;
    evtimer_add(connection.deadline.get(), &deadline_); // the handler's time is not the client's
    const std::string frame = encode(reply);
    bufferevent_disable(connection.buffer.get(), EV_READ);
    bufferevent_write(connection.buffer.get(), frame.data(), frame.size());
}

void Shell::hang_up(void *connection)
{
    const auto *ended = static_cast<Connection *>(connection);
    Shell &shell = *ended->shell;
    shell.connections_.erase(ended->place);
    shell.resume();
}

void Shell::pause()
{
    evconnlistener_disable(listener_.get());
}

void Shell::resume()
{
    evconnlistener_enable(listener_.get());
}

} // namespace ssat
