// The debug shell's socket file.
//
// A socket with an abstract name would need no tidying up, but it has no owner and no mode: the file system
// keeps strangers out before they reach us.
#include "shell/socket.h"

#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "loop/settings.h"

namespace ssat
{
namespace
{

constexpr int backlog = 16;

int bind_to(int fd, const sockaddr_un &address)
{
    const int result = bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
    return result == 0 ? 0 : errno;
}

bool somebody_listens(const sockaddr_un &address)
{
    const platform::Descriptor probe{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    return connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0 ||
           (errno != ECONNREFUSED && errno != ENOENT);
}

Identity file_at(const std::string &path)
{
    struct stat info {
    };
    if (lstat(path.c_str(), &info) != 0) {
        return {};
    }
    return {true, info.st_dev, info.st_ino};
}

// Removes the socket file of a dead process. Returns 0 or a positive errno.
int clear_away(const std::string &path, const sockaddr_un &address)
{
    struct stat info {
    };
    if (lstat(path.c_str(), &info) == 0 && !S_ISSOCK(info.st_mode)) {
        return EEXIST;
    }
    if (somebody_listens(address)) {
        return EADDRINUSE;
    }
    return unlink(path.c_str()) == 0 || errno == ENOENT ? 0 : errno;
}

} // namespace

std::string socket_path(const std::string &module)
{
    return platform::setting("SSAT_SOCKET", "/run/" + module + ".ssat");
}

std::optional<sockaddr_un> address_of(const std::string &path)
{
    sockaddr_un address{};
    if (path.empty() || path.size() >= sizeof(address.sun_path)) {
        return std::nullopt;
    }
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.data(), path.size());
    return address;
}

bool SocketFile::open(const std::string &path, int &error)
{
    const auto address = address_of(path);
    if (!address) {
        error = ENAMETOOLONG;
        return false;
    }
    platform::Descriptor fd{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    // Before it has a name: the file comes into being with this mode, whatever the umask.
    if (!fd || fchmod(fd.get(), 0600) != 0) {
        error = errno;
        return false;
    }
    error = bind_to(fd.get(), *address);
    if (error == EADDRINUSE) {
        error = clear_away(path, *address);
        if (error == 0) {
            error = bind_to(fd.get(), *address);
        }
    }
    if (error != 0) {
        return false;
    }
    path_ = path;
    file_ = file_at(path);
    socket_ = std::move(fd);
    if (listen(socket_.get(), backlog) != 0) {
        error = errno;
        return false;
    }
    return true;
}

SocketFile::~SocketFile()
{
    if (!path_.empty() && file_.open && file_at(path_) == file_) {
        unlink(path_.c_str());
    }
}

} // namespace ssat
