// The event loop for whoever embeds it.
//
// An eventfd and not libevent's own threading support: that would put locks into every call of a loop which
// is used by one thread in the daemon, and could not be called from a signal handler.
#include "loop/loop.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/eventfd.h>

#include "loop/descriptor.h"
#include "loop/libevent_handles.h"
#include "loop/platform_context.h"

namespace platform
{

struct Wake::Parts {
    std::function<void()> taken;
    Descriptor fd;
    Event ev;
};

int32_t loop_run(vx_global_t *global)
{
    if (global == nullptr) {
        return -EINVAL;
    }
    return event_base_loop(event_base_of(global), EVLOOP_NO_EXIT_ON_EMPTY) < 0 ? -EIO : 0;
}

void loop_end(vx_global_t *global)
{
    (void)event_base_loopbreak(event_base_of(global));
}

Wake::Wake(vx_global_t *global, std::function<void()> taken) : parts_(std::make_unique<Parts>())
{
    parts_->taken = std::move(taken);
    parts_->fd.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!parts_->fd) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    const auto on_call = [](evutil_socket_t fd, short /*what*/, void *arg) {
        eventfd_t count = 0;
        (void)eventfd_read(fd, &count);
        static_cast<Parts *>(arg)->taken();
    };
    parts_->ev.reset(
        event_new(event_base_of(global), parts_->fd.get(), EV_READ | EV_PERSIST, on_call, parts_.get()));
    if (!parts_->ev || event_add(parts_->ev.get(), nullptr) != 0) {
        throw std::system_error(EIO, std::generic_category(), "the loop takes no wake-up");
    }
}

Wake::~Wake() = default;

void Wake::call() const noexcept
{
    const int error = errno; // a signal handler must leave it as it was
    (void)eventfd_write(parts_->fd.get(), 1);
    errno = error;
}

} // namespace platform
