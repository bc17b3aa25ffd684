// Descriptors 0, 1 and 2. Refusing to start without them was the alternative; but what a daemon without
// standard output loses is its standard output, not its task.
#include "loop/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

namespace platform
{

void occupy_standard_descriptors() noexcept
{
    int fd = -1;
    do {
        fd = open("/dev/null",
                  O_RDWR); // takes the lowest free number; without O_CLOEXEC, as their users expect
    } while (fd >= 0 && fd < first_own_descriptor);
    if (fd >= 0) {
        close(fd);
    }
}

} // namespace platform
