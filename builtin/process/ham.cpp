// Process manager, by systemd's notification protocol, and the check that a program runs once.
//
// The action that a manager takes at our exit stands in the service unit and not in a message: the protocol
// knows none for it, and a manager that lost its mind about it would do so with our process. So registering
// means only that this process reports itself from now on.
//
// The single instance hangs on a lock and not on a pid file: the kernel releases it however the process ends,
// and no number can be taken for that of a stranger who got it later.
#include "ham.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "loop/health.h"
#include "loop/settings.h"
#include "loop/standard_descriptors.h"
#include "loop/standard_error.h"
#include "process/descriptor_watch.h"
#include "process/lock_holder.h"
#include "process/service_notice.h"

namespace
{

std::string lock_path()
{
    return platform::setting("VX_LOCK_FILE", std::string("/run/") + program_invocation_short_name + ".lock");
}

int32_t cannot_tell(const std::string &path, int error)
{
    platform::report_on_standard_error("platform: cannot lock %s: %s\n", path.c_str(), strerror(error));
    return -error;
}

// Returns ", pid 123", or "" when the file names none.
std::string holder_in(int fd)
{
    const std::string pid = platform::lock_holder(fd);
    return pid.empty() ? "" : ", pid " + pid;
}

void write_holder(int fd)
{
    if (!platform::note_lock_holder(fd)) {
        platform::report_on_standard_error("platform: cannot note our pid in the lock file: %s\n",
                                           strerror(errno));
    }
}

} // namespace

int32_t reg_process_exit_action(int32_t first, int32_t /*action*/)
{
    return first == 0 ? platform::register_service() : -EINVAL;
}

int32_t vx_initframe_duplicate_check(void)
try {
    static int held = -1; // for the rest of the process's life, so nobody closes it
    if (held >= 0) {
        return 0;
    }
    platform::occupy_standard_descriptors();
    const std::string path = lock_path();
    // For nobody else to open: another who holds the lock keeps us from starting.
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        return cannot_tell(path, errno);
    }
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        if (error == EWOULDBLOCK) {
            platform::report_on_standard_error("platform: %s is held by another instance%s\n", path.c_str(),
                                               holder_in(fd).c_str());
        }
        close(fd);
        return error == EWOULDBLOCK ? 1 : cannot_tell(path, error);
    }
    write_holder(fd);
    held = fd;
    platform::make_health_public();
    platform::watch_descriptors();
    return 0;
} catch (const std::exception &) {
    return -ENOMEM;
}
