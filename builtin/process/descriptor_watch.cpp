// The count of file descriptors; see the header.
#include "process/descriptor_watch.h"

#include <cerrno>
#include <exception>
#include <memory>
#include <string>

#include "log/platform_log.h"
#include "loop/descriptor_reserve.h"
#include "loop/health.h"
#include "loop/libevent_handles.h"
#include "loop/platform_context.h"
#include "process/service_notice.h"

namespace platform
{

namespace
{

class DescriptorWatch
{
public:
    explicit DescriptorWatch(event_base *base) : timer_(event_new(base, -1, EV_PERSIST, timer_cb, this))
    {
        constexpr timeval interval{2, 0};
        if (timer_) {
            (void)event_add(timer_.get(), &interval);
        }
    }

private:
    enum class State { enough, few, reserve_used };

    static void timer_cb(evutil_socket_t fd, short what, void *self) noexcept;
    void inspect();

    void enter(State state, const std::string &figures);

    State state_ = State::enough;
    std::string unsent_status_; // for which the manager had no room
    Event timer_;
};

void DescriptorWatch::timer_cb(evutil_socket_t /*fd*/, short /*what*/, void *self) noexcept
try {
    static_cast<DescriptorWatch *>(self)->inspect();
} catch (const std::exception &) {
    return; // it looks again
}

void DescriptorWatch::inspect()
{
    const DescriptorCount count = count_descriptors();
    State state = State::enough;
    if (is_descriptor_reserve_used()) {
        state = State::reserve_used;
    } else if (count.open >= count.limit / 4 * 3) {
        state = State::few;
    }
    if (state != State::enough || state_ != State::enough) {
        const bool is_scarce = state != State::enough;
        note_health("descriptors", is_scarce ? count.open : 0);
        note_health("descriptors_limit", is_scarce ? count.limit : 0);
    }
    if (state != state_) {
        enter(state, std::to_string(count.open) + " of " + std::to_string(count.limit));
    }
    if (!unsent_status_.empty() && notify_status(unsent_status_) != -EAGAIN) {
        unsent_status_.clear();
    }
}

void DescriptorWatch::enter(State state, const std::string &figures)
{
    state_ = state;
    switch (state) {
    case State::enough:
        PLATFORM_LOG(log_notice, "%s file descriptors are open, which leaves enough again", figures.c_str());
        unsent_status_ = "Serving";
        break;
    case State::few:
        PLATFORM_LOG(log_warn, "%s file descriptors are open: restart the service before they run out",
                     figures.c_str());
        unsent_status_ =
            "Serving, with " + figures + " file descriptors open: restart it before they run out";
        break;
    case State::reserve_used:
        PLATFORM_LOG(log_error,
                     "out of file descriptors (%s): the reserve for the store and the modules' folder is in "
                     "use, restart the service now",
                     figures.c_str());
        unsent_status_ = "Serving, out of file descriptors (" + figures + "): restart it now";
        break;
    }
}

std::shared_ptr<void> watch_of(event_base *base)
{
    return std::make_shared<DescriptorWatch>(base);
}

} // namespace

void watch_descriptors()
{
    hold_descriptor_reserve();
    accompany_runs(watch_of);
}

} // namespace platform
