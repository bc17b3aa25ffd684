// The notification protocol of the process manager; see the header.
#include "process/service_notice.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <system_error>

#include <unistd.h>

#include "log/unix_datagram.h"
#include "loop/descriptor_reserve.h"
#include "loop/libevent_handles.h"
#include "loop/number.h"
#include "loop/platform_context.h"
#include "loop/standard_error.h"

namespace platform
{

namespace
{

std::string_view text_of(const char *name)
{
    const char *value = getenv(name);
    return value == nullptr ? std::string_view{} : std::string_view(value);
}

// Nobody at the other end of NOTIFY_SOCKET is as good as no socket at all, and one who is busy will listen
// later.
bool may_serve_without(int result)
{
    return result == -ENOENT || result == -ECONNREFUSED || result == -EAGAIN;
}

std::string &status()
{
    static std::string line = "Serving";
    return line;
}

// Until it is sent: nothing else repeats it, and the manager would end a service that does not become ready.
void report_ready(evutil_socket_t /*fd*/, short /*what*/, void *arg) noexcept
{
    constexpr timeval later{0, 100'000};
    int result = -EAGAIN;
    try {
        result = notify_manager("READY=1\nSTATUS=" + status());
    } catch (const std::bad_alloc &) { // tried again
    }
    if (result == -EAGAIN) {
        evtimer_add(static_cast<Event *>(arg)->get(), &later);
    }
}

void report_alive(evutil_socket_t /*fd*/, short /*what*/, void * /*arg*/) noexcept
{
    (void)notify_manager("WATCHDOG=1");
}

// The notices hang on the loop and not on registration: "ready" and the heartbeats leave from inside the
// loop, so that they prove that it turns. A thread of its own would go on praising a daemon that hangs in a
// callback.
class LoopNotices
{
public:
    explicit LoopNotices(event_base *base);
    ~LoopNotices();
    LoopNotices(const LoopNotices &) = delete;
    LoopNotices &operator=(const LoopNotices &) = delete;

private:
    Event ready_;
    Event watchdog_;
};

LoopNotices::LoopNotices(event_base *base)
{
    constexpr timeval at_once{0, 0};
    ready_.reset(evtimer_new(base, report_ready, &ready_));
    if (ready_) {
        evtimer_add(ready_.get(), &at_once);
    }
    if (const auto interval = watchdog_interval()) {
        const auto half_us = interval->count() / 2;
        const timeval half{static_cast<time_t>(half_us / 1'000'000),
                           static_cast<suseconds_t>(half_us % 1'000'000)};
        watchdog_.reset(event_new(base, -1, EV_PERSIST, report_alive, nullptr));
        if (watchdog_) {
            event_add(watchdog_.get(), &half);
        }
    }
}

LoopNotices::~LoopNotices()
{
    (void)notify_manager("STOPPING=1\nSTATUS=Stopping");
}

std::shared_ptr<void> notices_of(event_base *base)
{
    return std::make_shared<LoopNotices>(base);
}

} // namespace

int notify_manager(std::string_view state) noexcept
try {
    const LentDescriptors for_the_socket; // heartbeats have to leave whatever else is open
    const std::string_view manager = text_of("NOTIFY_SOCKET");
    return manager.empty() ? 0 : send_datagram(open_datagram_socket(), manager, state);
} catch (const std::system_error &problem) {
    return -problem.code().value();
}

int notify_status(const std::string &line)
{
    status() = line;
    return notify_manager("STATUS=" + line);
}

int register_service() noexcept
try {
    const int result = notify_manager("STATUS=Starting");
    if (result < 0 && !may_serve_without(result)) {
        report_on_standard_error("platform: cannot reach the process manager at NOTIFY_SOCKET=%s: %s\n",
                                 getenv("NOTIFY_SOCKET"), strerror(-result));
        return result;
    }
    accompany_runs(notices_of);
    return 0;
} catch (const std::bad_alloc &) {
    return -ENOMEM;
}

std::optional<std::chrono::microseconds> watchdog_interval()
{
    const std::string_view whose = text_of("WATCHDOG_PID");
    const std::optional<int64_t> interval = whole_number(text_of("WATCHDOG_USEC"));
    if (!interval || *interval <= 0 || (!whose.empty() && whole_number(whose) != int64_t{getpid()})) {
        return std::nullopt;
    }
    return std::chrono::microseconds(*interval);
}

} // namespace platform
