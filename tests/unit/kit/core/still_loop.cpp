// The parts of the built-in platform that the kit's core calls.
#include "still_loop.h"

#include <atomic>
#include <utility>

#include "log/platform_log.h"
#include "loop/loop.h"
#include "loop/settings.h"

namespace
{

std::function<void()> the_story;
std::function<void()> the_taker;    // of the one wake that there is
std::atomic<bool> is_called{false}; // the only thing that other threads touch

} // namespace

namespace still_loop
{

void on_run(std::function<void()> story)
{
    the_story = std::move(story);
}

bool turn()
{
    const bool was_called = is_called.exchange(false);
    if (was_called) {
        the_taker();
    }
    return was_called;
}

} // namespace still_loop

namespace platform
{

struct Wake::Parts {
};

Wake::Wake(vx_global_t * /*global*/, std::function<void()> taken) : parts_(std::make_unique<Parts>())
{
    the_taker = std::move(taken);
    is_called = false;
}

Wake::~Wake()
{
    the_taker = nullptr;
}

void Wake::call() const noexcept
{
    is_called = true;
}

int32_t loop_run(vx_global_t * /*global*/)
{
    std::exchange(the_story, nullptr)();
    return 0;
}

void loop_end(vx_global_t * /*global*/) {}

void log_listen(std::function<void(int32_t, const std::string &)> /*listener*/) {}

void tell_setting_mistakes(std::function<void(const std::string &)> /*listener*/) {}

} // namespace platform
