// Event loop and one-shot timers, on libevent.
//
// libevent rather than a loop of our own around timerfd and epoll: the store's client library brings an
// adapter for it, and its buffered sockets carry the debug shell. Two of its defaults are turned off: the
// coarse clock, and its licence to date new timers from a time read earlier in the turn. A callback that
// waited three seconds for the store must not arm a timer three seconds too short, whatever release of
// libevent runs.
//
// Signals are handled only while the loop runs: a tool that uses nothing but blocking calls still ends at
// the user's first Ctrl-C.
#include "vx_thread.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <csignal>
#include <list>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "loop/libevent_handles.h"
#include "loop/platform_context.h"
#include "loop/standard_descriptors.h"

namespace
{

using platform::Event;
using platform::EventBase;
using platform::EventConfig;

constexpr size_t slot_count = 3;

std::vector<platform::Companion> companions; // who makes one for each run

thread_local vx_global_t *running = nullptr;

// What the handle that we give out really is.
struct Timer : vx_thread_t {
    vx_thread_f callback = nullptr;
    vx_global_t *owner = nullptr;
    Event ev;
    std::list<Timer>::iterator place;
};

EventBase make_base()
{
    const EventConfig config{event_config_new()};
    if (!config) {
        return nullptr;
    }
    event_config_set_flag(config.get(), EVENT_BASE_FLAG_NO_CACHE_TIME | EVENT_BASE_FLAG_PRECISE_TIMER);
    return EventBase{event_base_new_with_config(config.get())};
}

} // namespace

// The members' order is the reverse of their end: slots are emptied first, then the timers, then the loop.
struct vx_global {
    vx_global(const char *module_name, EventBase loop) : module(module_name), base(std::move(loop)) {}
    ~vx_global()
    {
        for (auto &slot : slots) {
            slot.reset();
        }
    }
    vx_global(const vx_global &) = delete;
    vx_global &operator=(const vx_global &) = delete;

    std::string module;
    bool running = false;
    bool ending = false;
    std::exception_ptr failure; // what a handler threw
    platform::Activity activity;
    const platform::Handling *handling = nullptr; // the innermost
    EventBase base;
    std::list<Timer> timers; // armed ones only
    std::array<std::shared_ptr<void>, slot_count> slots;
};

namespace
{

// The timer leaves the list of armed ones before its callback runs, but lives until that returns: the
// callback reads its argument from the handle.
void timer_due(evutil_socket_t /*fd*/, short /*what*/, void *arg) noexcept
{
    auto *timer = static_cast<Timer *>(arg);
    assert(&*timer->place == timer); // another timer would leave the list, and fire after its end
    std::list<Timer> entered;
    entered.splice(entered.begin(), timer->owner->timers, timer->place);
    const platform::Handling handling(timer->owner, {platform::Activity::Kind::timer});
    timer->callback(timer);
}

void end_asked(evutil_socket_t /*signal_number*/, short /*what*/, void *arg) noexcept
{
    platform::end_context(static_cast<vx_global_t *>(arg));
}

Event watch_signal(vx_global_t &global, int signal_number)
{
    Event ev{evsignal_new(global.base.get(), signal_number, end_asked, &global)};
    if (!ev || event_add(ev.get(), nullptr) != 0) {
        return nullptr;
    }
    return ev;
}

bool is_time_span(const timeval &span)
{
    return span.tv_sec >= 0 && span.tv_usec >= 0 && span.tv_usec < 1'000'000;
}

} // namespace

vx_global_t *vx_global_init(const char *module, void *reserved)
try {
    if (module == nullptr || reserved != nullptr) {
        return nullptr;
    }
    platform::occupy_standard_descriptors();
    EventBase base = make_base();
    if (!base) {
        return nullptr;
    }
    return std::make_unique<vx_global>(module, std::move(base)).release();
} catch (const std::bad_alloc &) {
    return nullptr;
}

int32_t vx_global_run(vx_global_t *global)
try {
    if (global == nullptr) {
        return -EINVAL;
    }
    if (global->running) {
        return -EBUSY;
    }
    const Event terminate = watch_signal(*global, SIGTERM);
    const Event interrupt = watch_signal(*global, SIGINT);
    if (!terminate || !interrupt) {
        return -EIO;
    }
    std::vector<std::shared_ptr<void>> made;
    made.reserve(companions.size());
    for (const platform::Companion make : companions) {
        made.push_back(make(global->base.get()));
    }
    return platform::run_context(global);
} catch (const std::bad_alloc &) {
    return -ENOMEM;
}

void vx_global_finish(vx_global_t *global)
{
    const std::unique_ptr<vx_global> owned{global};
}

vx_thread_t *vx_thread_add_timer_timeval(vx_global_t *global, vx_thread_f f, void *arg,
                                         struct timeval timeout)
try {
    if (global == nullptr || f == nullptr || !is_time_span(timeout)) {
        return nullptr;
    }
    std::list<Timer> armed(1);
    Timer &timer = armed.front();
    timer.arg = arg;
    timer.callback = f;
    timer.owner = global;
    timer.place = armed.begin();
    timer.ev.reset(evtimer_new(global->base.get(), timer_due, &timer));
    if (!timer.ev || evtimer_add(timer.ev.get(), &timeout) != 0) {
        return nullptr;
    }
    global->timers.splice(global->timers.end(), armed);
    return &timer;
} catch (const std::bad_alloc &) {
    return nullptr;
}

void vx_thread_cancel(vx_thread_t *t)
{
    if (t != nullptr) {
        const auto *timer = static_cast<Timer *>(t);
        assert(&*timer->place == timer);
        timer->owner->timers.erase(timer->place);
    }
}

namespace platform
{

void accompany_runs(Companion make)
{
    if (std::find(companions.begin(), companions.end(), make) == companions.end()) {
        companions.push_back(make);
    }
}

int32_t run_context(vx_global_t *global)
{
    if (global->running) {
        return -EBUSY;
    }
    int result = 0;
    assert(!global->failure || global->ending); // else what a handler threw would be lost in this run
    global->running = true;
    vx_global_t *around = std::exchange(running, global);
    if (!global->ending) {
        result = event_base_loop(global->base.get(), EVLOOP_NO_EXIT_ON_EMPTY);
    }
    running = around;
    global->running = false;
    global->ending = false;
    return result < 0 || global->failure ? -EIO : 0;
}

vx_global_t *running_context() noexcept
{
    return running;
}

void end_context(vx_global_t *global) noexcept
{
    global->ending = true;
    (void)event_base_loopbreak(global->base.get());
}

const Activity &activity_of(const vx_global_t *global) noexcept
{
    return global->activity;
}

Handling::Handling(vx_global_t *global, const Activity &activity) noexcept
    : global_(global), around_(std::exchange(global->activity, activity)),
      outer_(std::exchange(global->handling, this))
{
}

Handling::~Handling()
{
    assert(global_->handling == this); // else writes would name the wrong cause from here on
    global_->handling = outer_;
    global_->activity = around_;
}

bool is_ending(const vx_global_t *global) noexcept
{
    return global->ending;
}

void fail_loop(vx_global_t *global) noexcept
{
    if (!global->failure) {
        global->failure = std::current_exception();
    }
    end_context(global);
}

std::exception_ptr release_failure(vx_global_t *global) noexcept
{
    return std::exchange(global->failure, nullptr);
}

event_base *event_base_of(vx_global_t *global)
{
    return global->base.get();
}

const std::string &module_of(vx_global_t *global)
{
    return global->module;
}

std::shared_ptr<void> &slot_of(vx_global_t *global, Slot slot)
{
    return global->slots.at(static_cast<size_t>(slot));
}

} // namespace platform
