// Notices that a process runs out of file descriptors, and says so before it has.
#ifndef PROCESS_DESCRIPTOR_WATCH_H
#define PROCESS_DESCRIPTOR_WATCH_H

namespace platform
{

// Raises the limit, takes the reserve, and has each vx_global_run() from now on count the descriptors every
// two seconds. From three quarters of the limit on, and again when the reserve is in use, the log and the
// process manager's status say so. Throws std::bad_alloc.
void watch_descriptors();

} // namespace platform

#endif
