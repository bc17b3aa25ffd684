// The one writer's claim to the history.
#include "file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "history/history.h"

namespace history
{

namespace
{

constexpr mode_t for_owner_and_group = 0640;

int open_or_throw(const std::string &place)
{
    const int number = ::open(place.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, for_owner_and_group);
    if (number < 0) {
        const int error = errno;
        throw error == ENOSPC || error == EDQUOT
            ? Error("cannot make " + place + ": " + std::strerror(error), Error::Kind::passing)
            : Error("cannot open " + place + ": " + std::strerror(error) +
                    "; its folder must exist and be writable");
    }
    return number;
}

} // namespace

FileLock::FileLock(const std::string &path) : number_(open_or_throw(place(path)))
{
    if (flock(number_, LOCK_EX | LOCK_NB) != 0) {
        const std::string why = errno == EWOULDBLOCK ? "another process writes it" : std::strerror(errno);
        close(number_);
        throw Error("cannot write the history " + path + ": " + why);
    }
}

FileLock::~FileLock()
{
    close(number_);
}

} // namespace history
