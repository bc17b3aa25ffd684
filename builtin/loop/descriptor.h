// A file descriptor with one owner, who closes it.
#ifndef LOOP_DESCRIPTOR_H
#define LOOP_DESCRIPTOR_H

#include <utility>

#include <unistd.h>

namespace platform
{

class Descriptor
{
public:
    // None.
    Descriptor() = default;
    // Owns the descriptor from here on; -1 is none.
    explicit Descriptor(int fd) noexcept : fd_(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor &&other) noexcept : fd_(other.release()) {}
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    // False when there is none, as after a call that failed with -1.
    explicit operator bool() const noexcept { return fd_ >= 0; }
    // The descriptor, which stays ours; -1 when there is none.
    int get() const noexcept { return fd_; }
    // The descriptor, which is the caller's to close; -1 when there is none.
    int release() noexcept { return std::exchange(fd_, -1); }
    // Closes what it has, and owns another one.
    void reset(int fd = -1) noexcept
    {
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

} // namespace platform

#endif
