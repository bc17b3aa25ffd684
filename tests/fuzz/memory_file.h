// A file that only this process has: what reads a file by its name reads the input from memory.
#ifndef MEMORY_FILE_H
#define MEMORY_FILE_H

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "fuzz.h"

namespace fuzz
{

class MemoryFile
{
public:
    MemoryFile() : fd_(memfd_create("input", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(fd_))
    {
        require(fd_ >= 0 && fchmod(fd_, 0600) == 0, "there is a file in memory");
    }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;
    ~MemoryFile() { (void)close(fd_); }

    // Puts this text in the place of what the file held.
    void hold(std::string_view text) const
    {
        require(ftruncate(fd_, 0) == 0 &&
                    pwrite(fd_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
                "the file takes the input");
    }
    const std::string &path() const { return path_; }

private:
    int fd_;
    std::string path_;
};

} // namespace fuzz

#endif
