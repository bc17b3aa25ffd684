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

// Sends one message, at once or, when the receiver's queue is full, as soon as it has room.
// to  where it listens: an absolute path, or `@` and an abstract name
// Returns 0, or a negative errno: -EINVAL for an address of another form, -ENAMETOOLONG for one too long,
// -ENOENT and -ECONNREFUSED when nobody listens there.
int send_datagram(const Descriptor &socket, std::string_view to, std::string_view message) noexcept;

} // namespace platform

#endif
