// Where a debug shell and its client meet: the shell's socket file.
#ifndef SHELL_SOCKET_H
#define SHELL_SOCKET_H

#include <optional>
#include <string>

#include <sys/un.h>

#include "loop/descriptor.h"
#include "shell/output.h"

namespace ssat
{

// Returns the path of the named module's socket: the setting SSAT_SOCKET, else /run/MODULE.ssat.
std::string socket_path(const std::string &module);

// Returns a path as a socket's address; nothing when the path is empty or too long for one.
std::optional<sockaddr_un> address_of(const std::string &path);

// A listening socket and its file, which is removed with it.
class SocketFile
{
public:
    // Listens on a socket file of mode 0600, in place of one that a dead process left behind.
    // error  set to a positive errno when the result is false: EADDRINUSE when a live process listens there,
    //        EEXIST when the file is something else than a socket.
    bool open(const std::string &path, int &error);

    SocketFile() = default;
    ~SocketFile();
    SocketFile(const SocketFile &) = delete;
    SocketFile &operator=(const SocketFile &) = delete;

    // The listening socket, which stays this object's; -1 before open() has succeeded.
    int fd() const noexcept { return socket_.get(); }

private:
    platform::Descriptor socket_;
    std::string path_; // empty until there is a file of ours
    Identity file_;
};

} // namespace ssat

#endif
