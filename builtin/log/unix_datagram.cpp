// Messages to services of the system; see the header.
//
// A socket that is not connected finds a service that was restarted, which listens under its old name on a
// new socket; a connected one can be watched for room.
#include "log/unix_datagram.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "loop/standard_descriptors.h"

namespace platform
{

namespace
{

struct Address {
    sockaddr_un name{};
    socklen_t length = 0;

    const sockaddr *get() const noexcept { return reinterpret_cast<const sockaddr *>(&name); }

    // Returns 0, or a negative errno for a text that is no address.
    int set(std::string_view text) noexcept
    {
        name.sun_family = AF_UNIX;
        if (text.size() < 2 || (text.front() != '/' && text.front() != '@')) {
            return -EINVAL;
        }
        if (text.size() >= sizeof name.sun_path) {
            return -ENAMETOOLONG;
        }
        (void)text.copy(name.sun_path, text.size());
        length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + text.size());
        if (text.front() == '@') {
            name.sun_path[0] = '\0'; // an abstract name is as long as the address says
        } else {
            length++;
        }
        return 0;
    }
};

// `to` is null for the receiver that the socket is connected with.
int send_to(const Descriptor &socket, const Address *to, std::string_view message) noexcept
{
    for (;;) {
        const ssize_t sent = sendto(socket.get(), message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                                    to == nullptr ? nullptr : to->get(), to == nullptr ? 0 : to->length);
        if (sent >= 0) {
            return 0;
        }
        if (errno != EINTR) {
            return -errno;
        }
    }
}

} // namespace

Descriptor open_datagram_socket()
{
    const Descriptor lowest(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    Descriptor own(lowest ? fcntl(lowest.get(), F_DUPFD_CLOEXEC, first_own_descriptor) : -1);
    if (!own) {
        throw std::system_error(errno, std::generic_category(), "socket");
    }
    return own;
}

int send_datagram(const Descriptor &socket, std::string_view to, std::string_view message) noexcept
{
    Address address;
    const int result = address.set(to);
    return result == 0 ? send_to(socket, &address, message) : result;
}

int connect_datagram(Descriptor &socket, std::string_view to) noexcept
try {
    Address address;
    const int result = address.set(to);
    if (result != 0) {
        return result;
    }
    Descriptor fresh = open_datagram_socket();
    if (connect(fresh.get(), address.get(), address.length) != 0) {
        return -errno;
    }
    socket = std::move(fresh);
    return 0;
} catch (const std::system_error &problem) {
    return -problem.code().value();
}

int send_datagram(const Descriptor &connected, std::string_view message) noexcept
{
    return send_to(connected, nullptr, message);
}

} // namespace platform
