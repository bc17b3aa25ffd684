// Process manager, by systemd's notification protocol, and the check that a program runs once.
//
// The action that a manager takes at our exit stands in the service unit and not in a message: the protocol
// knows none for it, and a manager that lost its mind about it would do so with our process. So registering
// means only that this process reports itself from now on.
#include "ham.h"

#include <cerrno>
#include <cstdint>

#include <event2/event.h>
#include <systemd/sd-daemon.h>

#include "process_manager.h"

namespace
{

bool is_registered = false;

// Nobody at the other end of NOTIFY_SOCKET is as good as no socket at all.
bool nobody_listens(int result)
{
    return result == -ENOENT || result == -ECONNREFUSED;
}

void tell_ready(evutil_socket_t /*fd*/, short /*what*/, void * /*arg*/) noexcept
{
    sd_notify(0, "READY=1\nSTATUS=Serving");
}

void tell_alive(evutil_socket_t /*fd*/, short /*what*/, void * /*arg*/) noexcept
{
    sd_notify(0, "WATCHDOG=1");
}

} // namespace

namespace platform
{

void FreeNoticeEvent::operator()(event *ev) const noexcept
{
    event_free(ev);
}

ServiceNotices::ServiceNotices(event_base *base) : registered_(is_registered)
{
    if (!registered_) {
        return;
    }
    constexpr timeval at_once{0, 0};
    ready_.reset(evtimer_new(base, tell_ready, nullptr));
    if (ready_) {
        evtimer_add(ready_.get(), &at_once);
    }
    uint64_t interval_us = 0;
    if (sd_watchdog_enabled(0, &interval_us) > 0) {
        const timeval half{static_cast<time_t>(interval_us / 2 / 1'000'000),
                           static_cast<suseconds_t>(interval_us / 2 % 1'000'000)};
        watchdog_.reset(event_new(base, -1, EV_PERSIST, tell_alive, nullptr));
        if (watchdog_) {
            event_add(watchdog_.get(), &half);
        }
    }
}

ServiceNotices::~ServiceNotices()
{
    if (registered_) {
        sd_notify(0, "STOPPING=1\nSTATUS=Stopping");
    }
}

} // namespace platform

int32_t reg_process_exit_action(int32_t first, int32_t /*action*/)
{
    if (first != 0) {
        return -EINVAL;
    }
    const int result = sd_notify(0, "STATUS=Starting");
    if (result < 0 && !nobody_listens(result)) {
        return result;
    }
    is_registered = true;
    return 0;
}
