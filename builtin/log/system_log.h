// The way to the system log: lines leave at once, or wait in order, and their writer never waits.
//
// syslog(3) waits until the system log's service reads; so a service that hangs would stop the gate. Here
// what /dev/log has no room for waits in memory. It leaves from the loop, as soon as the service reads, or a
// restarted one is found; outside of a loop with the next line; and at the process's end within a second.
// Lines wait also while nobody listens, where syslog(3) drops them: the service may just be restarting. Each
// carries the time at which it was written.
#ifndef LOG_SYSTEM_LOG_H
#define LOG_SYSTEM_LOG_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "loop/descriptor.h"

namespace platform
{

// A line as syslog(3) sends it: "<PRIORITY>Mon dd hh:mm:ss IDENT[PID]: TEXT", in local time, without a line
// end. priority  facility and severity, as LOG_MAKEPRI() puts them together.
std::string system_log_line(int priority, const std::string &ident, const std::string &text);

class SystemLog
{
public:
    // How much may wait: some 20,000 lines, more than a chassis denies in minutes.
    static constexpr size_t most_bytes = size_t{4} * 1024 * 1024;

    // socket  where the system log listens; connected with the first line.
    // most    how many bytes may wait, a fixed amount for each line included; later lines are dropped.
    explicit SystemLog(std::string socket, size_t most = most_bytes);
    // Lets what waits leave, for a second at most.
    ~SystemLog();
    SystemLog(const SystemLog &) = delete;
    SystemLog &operator=(const SystemLog &) = delete;

    // Sends a line of system_log_line(), or has it wait behind those that do. What is longer than a message
    // may be (some 200 kB) is cut, with "[truncated]" at its end. What cannot be kept is dropped, counted,
    // logged once until all that waits has left, and noted in loop/health.h. Throws std::bad_alloc.
    void write(std::string line);

    // The lines dropped so far.
    [[nodiscard]] uint64_t dropped() const noexcept { return dropped_; }

private:
    struct LoopPart;

    int send(const std::string &line) noexcept;
    int connect() noexcept;
    bool flush();
    void flush_from_loop();
    void wait_on_loop();
    void leave_loop() noexcept;
    void use(Descriptor socket) noexcept;
    void drop();
    void report_end_of_drops();
    void finish();

    std::string path_;
    size_t most_;
    Descriptor socket_;               // connected; none while nobody listens
    int problem_ = 0;                 // why what waits has not left: a negative errno
    std::deque<std::string> waiting_; // in the order written
    size_t waiting_bytes_ = 0;
    uint64_t dropped_ = 0;
    uint64_t dropped_unreported_ = 0; // since all that waited had left
    std::weak_ptr<LoopPart> loop_part_;
};

} // namespace platform

#endif
