// What the loop tells the process manager, as long as it runs.
//
// The notices hang on the loop and not on registration: "ready" and the watchdog's signs of life leave from
// inside the loop, so that they prove that it turns. A thread of its own would go on praising a daemon that
// hangs in a callback.
#ifndef PROCESS_PROCESS_MANAGER_H
#define PROCESS_PROCESS_MANAGER_H

#include "loop/libevent_handles.h"

namespace platform
{

// Sends READY=1 and STATUS= at the loop's first turn, WATCHDOG=1 at half of the interval that the manager
// asks for, and STOPPING=1 when it is destroyed. Does nothing at all unless this process called
// reg_process_exit_action() before, nor where no manager listens.
class ServiceNotices
{
public:
    // base  the loop; must outlive the object.
    explicit ServiceNotices(event_base *base);
    ~ServiceNotices();
    ServiceNotices(const ServiceNotices &) = delete;
    ServiceNotices &operator=(const ServiceNotices &) = delete;

private:
    bool registered_;
    Event ready_;
    Event watchdog_;
};

} // namespace platform

#endif
