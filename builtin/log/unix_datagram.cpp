// Single messages to services of the system; see the header.
//
// Sockets are not connected: a service that starts again listens under its old name on a new socket, and each
// message finds it.
#include "log/unix_datagram.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "loop/standard_descriptors.h"

namespace platform
{

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
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (to.size() < 2 || (to.front() != '/' && to.front() != '@')) {
        return -EINVAL;
    }
    if (to.size() >= sizeof address.sun_path) {
        return -ENAMETOOLONG;
    }
    (void)to.copy(address.sun_path, to.size());
    auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + to.size());
    if (to.front() == '@') {
        address.sun_path[0] = '\0'; // an abstract name is as long as the address says
    } else {
        length++;
    }
    for (;;) {
        const ssize_t sent = sendto(socket.get(), message.data(), message.size(), MSG_NOSIGNAL,
                                    reinterpret_cast<const sockaddr *>(&address), length);
        if (sent >= 0) {
            return 0;
        }
        if (errno != EINTR) {
            return -errno;
        }
    }
}

} // namespace platform
