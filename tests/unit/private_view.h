// A view of the file system for one process of a test, in which it may mount what it likes.
#ifndef TESTS_UNIT_PRIVATE_VIEW_H
#define TESTS_UNIT_PRIVATE_VIEW_H

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>

namespace testing_platform
{

// Whether the process has a view of its own now. An ordinary user may have one only as the root of a user
// namespace.
inline bool enter_private_view()
{
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (unshare(CLONE_NEWNS | (user == 0 ? 0 : CLONE_NEWUSER)) != 0) {
        return false;
    }
    if (user != 0) {
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
        std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
    }
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

} // namespace testing_platform

#endif
