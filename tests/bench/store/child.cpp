// A process of ours; see the header.
#include "child.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace bench
{

Child::Child(const std::function<void(int report)> &become)
{
    int ends[2];
    if (pipe(ends) != 0) {
        throw std::runtime_error("no pipe to a process");
    }
    pid_ = fork();
    if (pid_ == 0) {
        (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
        (void)close(ends[0]);
        become(ends[1]);
        _exit(1);
    }
    (void)close(ends[1]);
    reports_ = ends[0];
    if (pid_ < 0) {
        (void)close(reports_);
        throw std::runtime_error("no process");
    }
}

Child::~Child()
{
    (void)kill(pid_, SIGKILL);
    (void)waitpid(pid_, nullptr, 0);
    (void)close(reports_);
}

} // namespace bench
