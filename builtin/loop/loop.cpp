// The event loop as C++ programs use it; see the header.
//
// An eventfd for Wake and not libevent's own threading support: that would put locks into every call of a
// loop which is used by one thread in the daemon, and could not be called from a signal handler.
#include "loop/loop.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <sys/eventfd.h>

#include "loop/descriptor.h"
#include "loop/libevent_handles.h"
#include "loop/platform_context.h"

namespace platform
{

struct Timer::Parts {
    vx_global_t *context;
    std::function<void()> due;
    vx_thread_t *handle = nullptr;

    static int32_t on_due(vx_thread_t *timer)
    {
        auto &self = *static_cast<Parts *>(timer->arg);
        self.handle = nullptr;
        const auto due = std::move(self.due); // it may destroy the timer, and this with it
        call_handler(self.context, due);
        return 0;
    }
};

Timer::Timer() = default;
Timer::Timer(Timer &&) noexcept = default;

Timer::Timer(vx_global_t *context, std::chrono::milliseconds delay, std::function<void()> due)
    : parts_(std::make_unique<Parts>())
{
    parts_->context = context;
    parts_->due = std::move(due);
    const timeval span{delay.count() / 1000, delay.count() % 1000 * 1000};
    parts_->handle = vx_thread_add_timer_timeval(context, Parts::on_due, parts_.get(), span);
    if (parts_->handle == nullptr) {
        throw std::runtime_error("the event loop cannot arm a timer");
    }
}

Timer::~Timer()
{
    cancel();
}

Timer &Timer::operator=(Timer &&other) noexcept
{
    if (this != &other) {
        cancel();
        parts_ = std::move(other.parts_);
    }
    return *this;
}

bool Timer::is_armed() const noexcept
{
    return parts_ != nullptr && parts_->handle != nullptr;
}

void Timer::cancel() noexcept
{
    if (is_armed()) {
        vx_thread_cancel(std::exchange(parts_->handle, nullptr));
    }
}

struct Watch::Parts : std::enable_shared_from_this<Watch::Parts> {
    vx_global_t *context = nullptr;
    std::function<void()> ready;
    Event ev;

    static void on_ready(evutil_socket_t /*fd*/, short /*what*/, void *self)
    {
        const auto kept = static_cast<Parts *>(self)->shared_from_this(); // the handler may end the watch
        call_handler(kept->context, kept->ready);
    }
};

Watch::Watch() = default;
Watch::Watch(Watch &&) noexcept = default;

Watch::Watch(vx_global_t *context, int fd, Until what, std::function<void()> ready)
    : parts_(std::make_shared<Parts>())
{
    parts_->context = context;
    parts_->ready = std::move(ready);
    const int events = (what == Until::readable ? EV_READ : EV_WRITE) | EV_PERSIST;
    parts_->ev.reset(
        event_new(event_base_of(context), fd, static_cast<short>(events), Parts::on_ready, parts_.get()));
    if (!parts_->ev || event_add(parts_->ev.get(), nullptr) != 0) {
        throw std::runtime_error("the event loop cannot watch descriptor " + std::to_string(fd));
    }
}

Watch::~Watch()
{
    cancel();
}

Watch &Watch::operator=(Watch &&other) noexcept
{
    if (this != &other) {
        cancel();
        parts_ = std::move(other.parts_);
    }
    return *this;
}

void Watch::cancel() noexcept
{
    if (parts_ != nullptr) {
        parts_->ev.reset();
    }
}

Loop::Loop(const std::string &name) : owned_(vx_global_init(name.c_str(), nullptr)), context_(owned_.get())
{
    if (context_ == nullptr) {
        throw std::runtime_error("no event loop can be made");
    }
}

Loop::Loop(vx_global_t *context) : context_(context) {}
Loop::~Loop() = default;

void Loop::run(Signals signals)
{
    const int32_t result = signals == Signals::end_it ? vx_global_run(context_) : run_context(context_);
    if (const std::exception_ptr failure = release_failure(context_)) {
        std::rethrow_exception(failure);
    }
    if (result != 0) {
        throw std::runtime_error("the event loop could not run (result " + std::to_string(result) + ")");
    }
}

void Loop::stop() noexcept
{
    end_context(context_);
}

bool Loop::is_stopping() const noexcept
{
    return is_ending(context_);
}

struct Wake::Parts {
    Descriptor fd;
    Watch watch;
};

Wake::Wake(vx_global_t *global, std::function<void()> handle) : parts_(std::make_unique<Parts>())
{
    parts_->fd.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!parts_->fd) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    const int fd = parts_->fd.get();
    parts_->watch = Watch(global, fd, Watch::Until::readable, [fd, handle = std::move(handle)] {
        eventfd_t count = 0;
        (void)eventfd_read(fd, &count);
        handle();
    });
}

Wake::~Wake() = default;

void Wake::call() const noexcept
{
    const int error = errno; // a signal handler must leave it as it was
    (void)eventfd_write(parts_->fd.get(), 1);
    errno = error;
}

} // namespace platform
