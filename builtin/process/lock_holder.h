// Which process holds a lock file: a line of text in it, for people. Nothing depends on it, the lock is the
// kernel's.
#ifndef PROCESS_LOCK_HOLDER_H
#define PROCESS_LOCK_HOLDER_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>

#include <unistd.h>

namespace platform
{

// The number of the process that an open file names; empty when it names none.
inline std::string lock_holder(int fd)
{
    std::array<char, 16> content{};
    const ssize_t length = pread(fd, content.data(), content.size(), 0);
    std::string pid(content.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    pid.erase(std::find_if_not(pid.begin(), pid.end(), [](char c) { return c >= '0' && c <= '9'; }),
              pid.end());
    return pid;
}

// Has an open file name this process. Returns false, with errno, when it cannot be written.
inline bool note_lock_holder(int fd)
{
    const std::string pid = std::to_string(getpid()) + '\n';
    return ftruncate(fd, 0) == 0 && pwrite(fd, pid.data(), pid.size(), 0) >= 0;
}

} // namespace platform

#endif
