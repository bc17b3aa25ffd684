// In place of the event loop.
#include "fake_loop.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <list>
#include <stdexcept>
#include <utility>

#include "loop/loop.h"

namespace
{

using std::chrono::milliseconds;

struct ArmedTimer {
    milliseconds at;
    std::function<void()> due;
    bool *is_armed;
};

struct PendingWake {
    std::function<void()> handle;
    std::atomic<bool> is_called{false}; // the only thing that other threads touch
};

struct World {
    milliseconds now{0};
    std::list<ArmedTimer> timers; // those due first, and of them those armed first, in front
    std::deque<std::function<void()>> posted;
    std::list<PendingWake *> wakes;
    std::function<void()> story;
    std::string problem;
    bool ends_at_signals = false;
    bool is_stopping = false;
};
World world;

int some_context; // nobody looks into it

} // namespace

namespace fake_loop
{

void reset()
{
    world = {};
}

void on_run(std::function<void()> story)
{
    world.story = std::move(story);
}

void fail_run(const std::string &problem)
{
    world.problem = problem;
}

bool ends_at_signals()
{
    return world.ends_at_signals;
}

bool is_stopping()
{
    return world.is_stopping;
}

void post(std::function<void()> handler)
{
    world.posted.push_back(std::move(handler));
}

void deliver()
{
    while (!world.posted.empty()) {
        const auto handler = std::move(world.posted.front());
        world.posted.pop_front();
        handler();
    }
}

bool turn()
{
    deliver();
    bool was_called = false;
    for (PendingWake *wake : world.wakes) {
        if (wake->is_called.exchange(false)) {
            was_called = true;
            wake->handle();
        }
    }
    return was_called;
}

void advance(milliseconds span)
{
    const milliseconds end = world.now + span;
    while (!world.timers.empty() && world.timers.front().at <= end) {
        std::list<ArmedTimer> entered;
        entered.splice(entered.begin(), world.timers, world.timers.begin());
        world.now = entered.front().at;
        *entered.front().is_armed = false;
        entered.front().due();
        deliver();
    }
    world.now = end;
}

std::size_t armed_timers()
{
    return world.timers.size();
}

} // namespace fake_loop

namespace platform
{

struct Timer::Parts {
    std::list<ArmedTimer>::iterator place;
    bool is_armed = true;
};

Timer::Timer() = default;
Timer::Timer(Timer &&) noexcept = default;

Timer::Timer(vx_global_t * /*context*/, milliseconds delay, std::function<void()> due)
    : parts_(std::make_unique<Parts>())
{
    const milliseconds at = world.now + delay;
    const auto next = std::find_if(world.timers.begin(), world.timers.end(),
                                   [at](const ArmedTimer &other) { return other.at > at; });
    parts_->place = world.timers.insert(next, {at, std::move(due), &parts_->is_armed});
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
    return parts_ != nullptr && parts_->is_armed;
}

void Timer::cancel() noexcept
{
    if (is_armed()) {
        parts_->is_armed = false;
        world.timers.erase(parts_->place);
    }
}

Loop::Loop(const std::string & /*name*/) : context_(reinterpret_cast<vx_global_t *>(&some_context)) {}

Loop::~Loop() = default;

void Loop::run(Signals signals)
{
    world.ends_at_signals = signals == Signals::end_it;
    world.is_stopping = false;
    if (!world.problem.empty()) {
        throw std::runtime_error(world.problem);
    }
    std::exchange(world.story, nullptr)();
}

void Loop::stop() noexcept
{
    world.is_stopping = true;
}

struct Wake::Parts {
    PendingWake pending;
};

Wake::Wake(vx_global_t * /*context*/, std::function<void()> handle) : parts_(std::make_unique<Parts>())
{
    parts_->pending.handle = std::move(handle);
    world.wakes.push_back(&parts_->pending);
}

Wake::~Wake()
{
    world.wakes.remove(&parts_->pending);
}

void Wake::call() const noexcept
{
    parts_->pending.is_called = true;
}

} // namespace platform
