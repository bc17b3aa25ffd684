// Single messages to services of the system that listen on a Unix socket.
#ifndef LOG_UNIX_DATAGRAM_H
#define LOG_UNIX_DATAGRAM_H

#include <string>
#include <string_view>

#include "loop/descriptor.h"

namespace platform
{

// Opens a socket to send from, above the standard descriptors. Throws std::system_error.
Descriptor open_datagram_socket();

// Sends one message, and never waits.
// to  where it listens: an absolute path, or `@` and an abstract name
// Returns 0, or a negative errno: -EINVAL for an address of another form, -ENAMETOOLONG for one too long,
// -ENOENT and -ECONNREFUSED when nobody listens there, -EAGAIN when the receiver's queue has no room,
// -EMSGSIZE for a message that is longer than the socket sends.
int send_datagram(const Descriptor &socket, std::string_view to, std::string_view message) noexcept;

// Opens a socket, as open_datagram_socket(), that sends to one receiver and can be watched for room in its
// queue. socket  receives it; untouched on failure. Returns 0, or a negative errno, as send_datagram() and
// open_datagram_socket().
int connect_datagram(Descriptor &socket, std::string_view to) noexcept;

// Sends one message to the receiver that the socket is connected with, and never waits.
// Returns 0, or a negative errno: -EAGAIN and -EMSGSIZE as above, -ECONNREFUSED and others when the receiver
// has gone.
int send_datagram(const Descriptor &connected, std::string_view message) noexcept;

} // namespace platform

#endif
