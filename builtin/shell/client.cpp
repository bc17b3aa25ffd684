// The other end of the debug shell.
//
// Plain poll(2) instead of libevent: one connection, one question, one deadline.
#include "shell/client.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "loop/descriptor.h"
#include "loop/number.h"
#include "shell/protocol.h"

namespace ssat
{
namespace
{

using Clock = std::chrono::steady_clock;

// One exchange with the shell at a path, until a deadline.
class Exchange
{
public:
    Exchange(std::string path, std::chrono::milliseconds timeout)
        : path_(std::move(path)), deadline_(Clock::now() + timeout)
    {
    }
    // Returns the reply's fields behind "ok". Throws Error for anything else.
    Fields ask(const Fields &request);
    // Who listens.
    pid_t peer();

private:
    [[noreturn]] void fail(Failure failure, const std::string &what) const;
    [[noreturn]] void fail_to_connect(int error) const;
    void connect();
    void send(std::string_view frame);
    std::string receive(size_t length);
    void wait_for(short events);
    int left_ms() const;

    std::string path_;
    Clock::time_point deadline_;
    platform::Descriptor socket_;
};

void Exchange::fail(Failure failure, const std::string &what) const
{
    throw Error(failure, path_ + ": " + what);
}

void Exchange::fail_to_connect(int error) const
{
    switch (error) {
    case ENOENT:
    case ECONNREFUSED:
    case ENOTDIR:
        fail(Failure::nobody_there, "no process listens there");
    case EACCES:
    case EPERM:
        fail(Failure::not_permitted, "only root and the user whom the process runs as may use its shell");
    default:
        fail(Failure::nobody_there, strerror(error));
    }
}

int Exchange::left_ms() const
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now());
    return static_cast<int>(std::clamp<int64_t>(left.count(), 0, 1'000'000));
}

void Exchange::wait_for(short events)
{
    pollfd wanted{socket_.get(), events, 0};
    int ready = 0;
    do {
        ready = poll(&wanted, 1, left_ms());
    } while (ready < 0 && errno == EINTR);
    if (ready <= 0) {
        fail(Failure::timed_out, "the process did not answer in time");
    }
}

void Exchange::connect()
{
    const auto address = address_of(path_);
    if (!address) {
        fail(Failure::nobody_there, "not usable as the path of a socket");
    }
    socket_.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    while (::connect(socket_.get(), reinterpret_cast<const sockaddr *>(&*address), sizeof(*address)) != 0) {
        if (errno != EAGAIN) {
            fail_to_connect(errno);
        }
        if (left_ms() == 0) {
            fail(Failure::timed_out, "the process did not accept the connection in time");
        }
        constexpr int queue_full_retry_ms = 20; // nothing notifies us when the queue has room again
        poll(nullptr, 0, std::min(left_ms(), queue_full_retry_ms));
    }
}

// A shell that refuses us hangs up before it has read anything, so a broken connection is left for receive():
// the reason may lie there.
void Exchange::send(std::string_view frame)
{
    while (!frame.empty()) {
        const ssize_t sent = ::send(socket_.get(), frame.data(), frame.size(), MSG_NOSIGNAL);
        if (sent >= 0) {
            frame.remove_prefix(static_cast<size_t>(sent));
        } else if (errno == EAGAIN) {
            wait_for(POLLOUT);
        } else if (errno != EINTR) {
            return;
        }
    }
}

std::string Exchange::receive(size_t length)
{
    std::string bytes(length, '\0');
    size_t done = 0;
    while (done < length) {
        const ssize_t got = recv(socket_.get(), bytes.data() + done, length - done, 0);
        if (got > 0) {
            done += static_cast<size_t>(got);
        } else if (got < 0 && errno == EAGAIN) {
            wait_for(POLLIN);
        } else if (got == 0 || errno != EINTR) {
            fail(Failure::broken, "the process ended the connection without a whole answer");
        }
    }
    return bytes;
}

Fields Exchange::ask(const Fields &request)
{
    connect();
    send(encode(request));
    const auto length = decode_header(receive(header_size));
    if (!length || *length > max_reply_size) {
        fail(Failure::broken, "the answer is not of this client's protocol");
    }
    auto fields = decode_fields(receive(*length));
    if (!fields || fields->empty()) {
        fail(Failure::broken, "the answer makes no sense");
    }
    const std::string outcome = fields->front();
    fields->erase(fields->begin());
    if (outcome == status::ok) {
        return std::move(*fields);
    }
    constexpr std::array<std::pair<std::string_view, Failure>, 3> refusals = {{
        {status::wrong_usage, Failure::wrong_usage},
        {status::denied, Failure::not_permitted},
        {status::unknown_command, Failure::unknown_command},
    }};
    const auto *refusal = std::find_if(refusals.begin(), refusals.end(),
                                       [&](const auto &known) { return known.first == outcome; });
    throw Error(refusal == refusals.end() ? Failure::broken : refusal->second,
                fields->empty() ? path_ + ": " + outcome : fields->front());
}

pid_t Exchange::peer()
{
    connect();
    ucred credentials{};
    socklen_t size = sizeof(credentials);
    if (getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
        fail(Failure::broken, strerror(errno));
    }
    return credentials.pid;
}

} // namespace

Error::Error(Failure failure, const std::string &message) : std::runtime_error(message), failure_(failure) {}

Reply run(const std::string &socket_path, const std::string &module, const std::string &command,
          const std::vector<std::string> &arguments, std::chrono::milliseconds timeout)
{
    Fields request{"run", module, command};
    request.insert(request.end(), arguments.begin(), arguments.end());
    Fields fields = Exchange(socket_path, timeout).ask(request);
    if (fields.size() != 4) {
        throw Error(Failure::broken, socket_path + ": the answer is not that to a command");
    }
    const auto result = platform::whole_number(fields[0], INT32_MIN, INT32_MAX);
    if (!result) {
        throw Error(Failure::broken, socket_path + ": the answer's result is not a number");
    }
    return {static_cast<int32_t>(*result), std::move(fields[1]), std::move(fields[2]), fields[3] != "whole"};
}

pid_t process_at(const std::string &socket_path, std::chrono::milliseconds timeout)
{
    return Exchange(socket_path, timeout).peer();
}

std::vector<Command> commands(const std::string &socket_path, std::chrono::milliseconds timeout)
{
    Fields fields = Exchange(socket_path, timeout).ask({"help"});
    if (fields.size() % 3 != 0) {
        throw Error(Failure::broken, socket_path + ": the answer is not that to a request for help");
    }
    std::vector<Command> all;
    for (size_t i = 0; i < fields.size(); i += 3) {
        all.push_back({std::move(fields[i]), std::move(fields[i + 1]), std::move(fields[i + 2])});
    }
    return all;
}

} // namespace ssat
