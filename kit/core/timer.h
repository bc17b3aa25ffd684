// A one-shot timer on the platform's loop that dies with its owner.
#ifndef KIT_TIMER_H
#define KIT_TIMER_H

#include <chrono>
#include <functional>
#include <utility>

#include "vx_thread.h"

namespace kit
{

class Timer
{
public:
    Timer() = default;
    ~Timer() { cancel(); }
    Timer(const Timer &) = delete;
    Timer &operator=(const Timer &) = delete;

    // Calls `action` once, in place of what was armed before; it may destroy the timer. Returns false when
    // the loop refused.
    bool arm(vx_global_t *context, std::chrono::milliseconds delay, std::function<void()> action)
    {
        cancel();
        action_ = std::move(action);
        const timeval span{delay.count() / 1000, delay.count() % 1000 * 1000};
        handle_ = vx_thread_add_timer_timeval(context, on_due, this, span);
        return handle_ != nullptr;
    }

    void cancel()
    {
        if (vx_thread_t *handle = std::exchange(handle_, nullptr)) {
            vx_thread_cancel(handle);
        }
    }

    [[nodiscard]] bool is_armed() const { return handle_ != nullptr; }

private:
    static int32_t on_due(vx_thread_t *due)
    {
        auto &self = *static_cast<Timer *>(due->arg);
        self.handle_ = nullptr;
        const auto action = std::move(self.action_);
        action();
        return 0;
    }

    vx_thread_t *handle_ = nullptr;
    std::function<void()> action_;
};

} // namespace kit

#endif
