// The event loop for whoever embeds it: run without taking over signals, ended and woken from any thread.
//
// Apart from vx_thread.h because a daemon needs none of it: a program with threads of its own does.
#ifndef LOOP_LOOP_H
#define LOOP_LOOP_H

#include <cstdint>
#include <functional>
#include <memory>

#include "vx_thread.h"

namespace platform
{

// Runs the loop as vx_global_run() does, but leaves all signals to the program. Ends by loop_end() only.
// Returns 0, or negative when it could not run.
int32_t loop_run(vx_global_t *global);

// Ends the loop, however it was started, once the callback that calls this has returned. For the loop's
// thread.
void loop_end(vx_global_t *global);

// A call that any thread, or a signal handler, has made on the loop.
class Wake
{
public:
    // taken  called on the loop's thread after call(), once for all calls since it was last called; throws
    //        nothing.
    // Throws std::system_error or std::bad_alloc. The context outlives the object.
    Wake(vx_global_t *global, std::function<void()> taken);
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
