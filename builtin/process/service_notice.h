// The notification protocol of the process manager: what it wants to know of a service, and how often.
//
// The protocol is a line of text in a datagram and two settings, documented for good (sd_notify(3)), so it is
// spoken here. The library for it would bring four compressors and a cipher along, for reading journals: a
// sixth of the daemon's memory.
#ifndef PROCESS_SERVICE_NOTICE_H
#define PROCESS_SERVICE_NOTICE_H

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace platform
{

// Notifies the manager that NOTIFY_SOCKET names of a state: assignments such as "READY=1", one on each line.
// Never waits. Returns 0, also when NOTIFY_SOCKET is not set or empty; otherwise a negative errno, -ENOENT or
// -ECONNREFUSED when nobody listens there, -EAGAIN when the manager has not read for so long that there is no
// room.
int notify_manager(std::string_view state) noexcept;

// Notifies the manager of the service's status, one line. A report of the process being ready that has not
// left yet says the same. Returns as notify_manager(). Throws std::bad_alloc.
int notify_status(const std::string &line);

// Registers this process with the manager: once its loop runs (vx_global_run), that reports the process ready
// at its first turn, alive at half of the interval that the manager asks for, and stopping at its end.
// Returns 0, also where no manager listens; otherwise the negative errno of reaching it, with a line on
// standard error.
int register_service() noexcept;

// The time within which the manager wants a heartbeat; none when it wants none of this process, as
// WATCHDOG_USEC and WATCHDOG_PID say.
std::optional<std::chrono::microseconds> watchdog_interval();

} // namespace platform

#endif
