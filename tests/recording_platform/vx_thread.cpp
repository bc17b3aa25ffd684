// The event loop: a context, timers on a virtual clock, and no loop at all.
//
// The clock steps from due timer to due timer instead of jumping to the end: a timer armed by a callback is
// then due relative to the moment at which that callback ran, as it is on a device.
#include "vx_thread.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "state.h"

namespace recording
{

namespace
{

using std::chrono::microseconds;

std::string seconds_text(timeval timeout)
{
    std::array<char, 64> text{};
    (void)std::snprintf(text.data(), text.size(), "%lld.%06lld", static_cast<long long>(timeout.tv_sec),
                        static_cast<long long>(timeout.tv_usec));
    return text.data();
}

microseconds duration_of(timeval timeout)
{
    return std::chrono::seconds(timeout.tv_sec) + microseconds(timeout.tv_usec);
}

// The first in arming order of those due earliest, or null when none is due by then.
Timer *next_due(microseconds until)
{
    Timer *next = nullptr;
    for (const std::unique_ptr<Timer> &timer : state().timers) {
        if (timer->due <= until && (next == nullptr || timer->due < next->due)) {
            next = timer.get();
        }
    }
    return next;
}

// Takes a timer out of those armed; null when the handle is none of theirs. Never looks behind the handle,
// which may be dead.
std::unique_ptr<Timer> disarm(const vx_thread_t *handle)
{
    std::vector<std::unique_ptr<Timer>> &timers = state().timers;
    const auto found =
        std::find_if(timers.begin(), timers.end(),
                     [handle](const std::unique_ptr<Timer> &timer) { return &timer->event == handle; });
    if (found == timers.end()) {
        return nullptr;
    }
    std::unique_ptr<Timer> timer = std::move(*found);
    timers.erase(found);
    return timer;
}

// One event of RECORDING_PLATFORM_EVENTS.
void run_event(const std::string &text)
{
    std::istringstream words(text);
    std::string kind;
    int32_t db = 0;
    int32_t type = 0;
    words >> kind >> db >> type;
    const bool known = kind == "connect"      ? connect(db)
                       : kind == "disconnect" ? disconnect(db)
                       : kind == "reconnect"  ? reconnect(db, type)
                                              : false;
    if (!known) {
        record_line("nobody waits for \"" + text + "\"");
    }
}

void run_events_of_environment()
{
    const char *text = std::getenv("RECORDING_PLATFORM_EVENTS");
    std::istringstream events(text == nullptr ? "" : text);
    for (std::string event; std::getline(events, event, ';');) {
        run_event(event);
    }
}

// The timer is dead when its callback is entered. What the callback is given is an event of its own: a loop
// need not hand over the handle.
void fire(const Timer &due)
{
    const std::unique_ptr<Timer> timer = disarm(&due.event);
    state().now = std::max(state().now, timer->due);
    record_line("timer " + timer->name + " fires");
    vx_thread_t event{timer->event.arg};
    (void)timer->callback(&event);
}

} // namespace

microseconds now()
{
    return state().now;
}

void advance(microseconds by)
{
    const microseconds until = state().now + by;
    for (const Timer *timer = next_due(until); timer != nullptr; timer = next_due(until)) {
        fire(*timer);
    }
    state().now = until;
}

std::vector<std::string> armed_timers()
{
    std::vector<std::string> names;
    for (const std::unique_ptr<Timer> &timer : state().timers) {
        names.push_back(timer->name);
    }
    return names;
}

void *timer_argument(const std::string &name)
{
    for (const std::unique_ptr<Timer> &timer : state().timers) {
        if (timer->name == name) {
            return timer->event.arg;
        }
    }
    return nullptr;
}

void on_run(std::function<void()> action)
{
    state().run_action = std::move(action);
}

} // namespace recording

using namespace recording;

vx_global_t *vx_global_init(const char *module, void *reserved)
{
    record_line("vx_global_init(" + printable(module) + ")" + set_suffix("reserved", reserved != nullptr));
    return finish_call("vx_global_init") == 0 ? context() : nullptr;
}

int32_t vx_global_run(vx_global_t *global)
{
    record_line("vx_global_run()" + context_suffix(global));
    run_events_of_environment();
    if (state().run_action) {
        const std::function<void()> action = state().run_action;
        action();
    }
    return finish_call("vx_global_run");
}

void vx_global_finish(vx_global_t *global)
{
    record_line("vx_global_finish()" + context_suffix(global));
    (void)finish_call("vx_global_finish");
}

vx_thread_t *vx_thread_add_timer_timeval(vx_global_t *global, vx_thread_f f, void *arg,
                                         struct timeval timeout)
{
    State &s = state();
    const bool refused = take_result("vx_thread_add_timer_timeval") != 0;
    vx_thread_t *handle = nullptr;
    std::string name = "null";
    if (!refused) {
        name = "t" + std::to_string(++s.timers_armed);
        auto timer = std::make_unique<Timer>();
        timer->event.arg = arg;
        timer->callback = f;
        timer->due = s.now + std::max(duration_of(timeout), microseconds(0));
        timer->name = name;
        handle = &timer->event;
        s.timers.push_back(std::move(timer));
    }
    record_line("vx_thread_add_timer(" + seconds_text(timeout) + ") = " + name +
                (f == nullptr ? " callback=null" : "") + context_suffix(global));
    run_scripted_action("vx_thread_add_timer_timeval");
    return handle;
}

void vx_thread_cancel(vx_thread_t *t)
{
    const std::unique_ptr<Timer> timer = disarm(t);
    record_line("vx_thread_cancel(" + (timer == nullptr ? "unknown" : timer->name) + ")");
    (void)finish_call("vx_thread_cancel");
}
