// Descriptors 0, 1 and 2, which belong to the process's user.
#ifndef LOOP_STANDARD_DESCRIPTORS_H
#define LOOP_STANDARD_DESCRIPTORS_H

namespace platform
{

constexpr int first_own_descriptor = 3;

// Opens /dev/null on those of descriptors 0, 1 and 2 that are closed. Otherwise the next file that we open
// takes such a number, and the next line that is printed ends up in it: in the lock file, or in the store's
// connection.
void occupy_standard_descriptors() noexcept;

} // namespace platform

#endif
