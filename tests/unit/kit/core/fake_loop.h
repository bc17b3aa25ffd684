// In place of the event loop: virtual time, and handlers that are called when a test says so.
//
// It defines the functions of builtin/loop/loop.h, so that the kit's core is linked with it as it is.
#ifndef FAKE_LOOP_H
#define FAKE_LOOP_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

namespace fake_loop
{

// Forgets what a test has left behind. Objects of the test before must be gone.
void reset();

// What happens in place of the next Loop::run(), which returns when `story` does.
void on_run(std::function<void()> story);
// Has the next Loop::run() throw instead.
void fail_run(const std::string &problem);
// Whether the last Loop::run() was to end at signals, and whether Loop::stop() has been called since.
bool ends_at_signals();
bool is_stopping();

// Calls the handler from the loop, in deliver().
void post(std::function<void()> handler);
// Calls what was posted.
void deliver();
// The same, and the handlers of wakes that were called, by whatever thread. Returns whether there was one.
bool turn();

// Lets time pass: calls each timer that is due at its own time, and what it posts.
void advance(std::chrono::milliseconds span);
std::size_t armed_timers();

} // namespace fake_loop

#endif
