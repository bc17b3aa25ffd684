// The event loop as C++ programs use it: timers and watches with an owner, ended by stop(), woken from any
// thread.
//
// A layer over vx_thread.h, which is what a daemon that runs on other platforms too has to do with: there a
// callback is a plain function, a timer a bare handle, and the loop is ended by a signal. Both work on the
// same context and may be mixed.
//
// What a handler throws does not get lost in the loop, which is C: it is kept, the loop ends, and Loop::run()
// throws it. Once the loop is to end, for this reason or by stop(), no handler is called any more, so that
// what comes after the first failure does not hide it.
#ifndef LOOP_LOOP_H
#define LOOP_LOOP_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "vx_thread.h"

namespace platform
{

// A one-shot timer. Destroying it disarms it; its own handler may do that too.
class Timer
{
public:
    // None: not armed.
    Timer();
    // Calls `due` from the loop after `delay`, once. Throws std::runtime_error when the loop cannot arm one,
    // or std::bad_alloc. The context outlives the object.
    Timer(vx_global_t *context, std::chrono::milliseconds delay, std::function<void()> due);
    ~Timer();
    Timer(Timer &&) noexcept;
    Timer &operator=(Timer &&) noexcept;
    Timer(const Timer &) = delete;
    Timer &operator=(const Timer &) = delete;

    // Whether it has still to fire.
    [[nodiscard]] bool is_armed() const noexcept;
    // Disarms it; without effect when it is not armed.
    void cancel() noexcept;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

// Watches a descriptor, which stays its owner's and outlives the watch. Destroying it ends that; its own
// handler may do that too.
class Watch
{
public:
    enum class Until { readable, writable };

    // None.
    Watch();
    // Calls `ready` from the loop whenever the descriptor is readable (its end included), or writable. Throws
    // std::runtime_error when the loop cannot watch the descriptor (a regular file), or std::bad_alloc. The
    // context outlives the object.
    Watch(vx_global_t *context, int fd, Until what, std::function<void()> ready);
    ~Watch();
    Watch(Watch &&) noexcept;
    Watch &operator=(Watch &&) noexcept;
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;

    // Ends it; without effect when it has ended.
    void cancel() noexcept;

private:
    struct Parts;
    std::shared_ptr<Parts> parts_;
};

// A loop: a context of its own, or one that stands already.
class Loop
{
public:
    // What SIGTERM and SIGINT do while it runs: end it, or what the program has arranged.
    enum class Signals { end_it, leave };

    // Makes a context that ends with the object. `name` is what the program calls itself: to the store's
    // server, in the log. Throws std::runtime_error when the system gives none.
    explicit Loop(const std::string &name);
    // On a context that outlives the object.
    explicit Loop(vx_global_t *context);
    ~Loop();
    Loop(const Loop &) = delete;
    Loop &operator=(const Loop &) = delete;

    // For what is to live on this loop; stays the loop's, or its owner's. Never null.
    [[nodiscard]] vx_global_t *context() const noexcept { return context_; }

    // Serves until stop(), a signal, or an exception that a handler throws, which it throws on. Throws
    // std::runtime_error when it could not run. May be called again: then it serves again.
    void run(Signals signals = Signals::end_it);

    // Ends run() once the present callback has returned; before run(), has the next one return at once. For
    // the loop's thread; others use Wake.
    void stop() noexcept;
    // Whether it is to end: stop() was called, a signal came, or a handler threw.
    [[nodiscard]] bool is_stopping() const noexcept;

    // A timer or a watch on this loop; arguments and errors are those of their constructors.
    [[nodiscard]] Timer after(std::chrono::milliseconds delay, std::function<void()> due)
    {
        return {context_, delay, std::move(due)};
    }
    [[nodiscard]] Watch watch(int fd, Watch::Until what, std::function<void()> ready)
    {
        return {context_, fd, what, std::move(ready)};
    }

private:
    struct Finish {
        void operator()(vx_global_t *context) const noexcept { vx_global_finish(context); }
    };

    std::unique_ptr<vx_global_t, Finish> owned_;
    vx_global_t *context_;
};

// A call that any thread, or a signal handler, has made on the loop.
class Wake
{
public:
    // handle  called on the loop's thread after call(), once for all calls since it was last called.
    // Throws std::runtime_error or std::bad_alloc. The context outlives the object.
    Wake(vx_global_t *global, std::function<void()> handle);
    ~Wake();
    Wake(const Wake &) = delete;
    Wake &operator=(const Wake &) = delete;

    // Never blocks, and may be called in a signal handler.
    void call() const noexcept;

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace platform

#endif
