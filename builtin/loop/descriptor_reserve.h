// Descriptors held back for what a program cannot do without: its connections, and what it opens when one
// comes up.
//
// A daemon that is out of descriptors cannot reach the store, and a folder that it cannot open is an empty
// one to it. So the limit is raised as far as the system allows, and some descriptors are kept and lent where
// that would happen.
#ifndef LOOP_DESCRIPTOR_RESERVE_H
#define LOOP_DESCRIPTOR_RESERVE_H

#include <cstddef>

namespace platform
{

// Raises the limit of open descriptors to the hardest that this process may have, and takes the reserve. Does
// nothing the second time. Where descriptors are short already, the reserve is what could be had.
void hold_descriptor_reserve() noexcept;

// Whether part of the reserve is gone to others: it was lent, and what was opened meanwhile has stayed open.
bool is_descriptor_reserve_used() noexcept;

// For the life of the object the reserve is free for whatever opens files; then it is taken back, as far as
// that is possible. They nest, on the thread that holds the reserve; in a process without one they do
// nothing.
class LentDescriptors
{
public:
    LentDescriptors() noexcept;
    ~LentDescriptors();
    LentDescriptors(const LentDescriptors &) = delete;
    LentDescriptors &operator=(const LentDescriptors &) = delete;

private:
    bool lends_; // whether there was a reserve
};

// Descriptors of this process: how many are open, the reserve included, and how many may be.
struct DescriptorCount {
    std::size_t open = 0;
    std::size_t limit = 0;
};

// Counts them. `open` is `limit` when not one is left to count with.
DescriptorCount count_descriptors();

} // namespace platform

#endif
