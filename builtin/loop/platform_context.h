// What the parts of the built-in platform share: the event loop, and a place to live as long as it does.
//
// A context owns its parts: the store client and the debug shell hang themselves into it and are destroyed
// by vx_global_finish() before the loop is. Globals were the alternative; they would be torn down after the
// loop they point to.
#ifndef LOOP_PLATFORM_CONTEXT_H
#define LOOP_PLATFORM_CONTEXT_H

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "vx_thread.h"

struct event_base;

namespace platform
{

enum class Slot { store_client, debug_shell, system_log };

// The loop of a context. Never null; owned by the context.
event_base *event_base_of(vx_global_t *global);

// The module's name that the context was created with.
const std::string &module_of(vx_global_t *global);

// A part's place in the context; empty until the part puts itself there. Parts are destroyed in the order of
// the enumeration, before the loop.
std::shared_ptr<void> &slot_of(vx_global_t *global, Slot slot);

// What a program is handling: whose callback runs. The loop and those who call a program's callbacks know it
// for certain and note it here; the store client has each write say it.
struct Activity {
    enum class Kind {
        none,       // no callback, or one of another kind: the program's own initiative, a command
        record,     // a record's notification
        timer,      // a timer fired
        connection, // a connection came up, was lost, or returned
    };
    Kind kind = Kind::none;
    uint64_t revision = 0;  // of the record's change; with Kind::record
    std::string_view key{}; // of the record, with Kind::record
};

// What is being handled now, the innermost of what is nested.
const Activity &activity_of(const vx_global_t *global) noexcept;

// For the life of the object this is what is handled. What `key` refers to outlives it.
class Handling
{
public:
    // They end in the reverse order of their beginning. The context outlives them.
    Handling(vx_global_t *global, const Activity &activity) noexcept;
    ~Handling();
    Handling(const Handling &) = delete;
    Handling &operator=(const Handling &) = delete;

private:
    vx_global_t *global_;
    Activity around_;
    const Handling *outer_;
};

// Runs the loop until end_context(), signals or not. Returns 0, or negative when it could not run, or was
// ended by what a handler threw.
int32_t run_context(vx_global_t *global);

// The context whose loop runs on this thread now; null when none does. For what is called without one, and
// may need the loop.
vx_global_t *running_context() noexcept;

// Ends the loop once the present callback has returned, or the next run at once.
void end_context(vx_global_t *global) noexcept;

// Whether the loop is to end, or will at once when it is run.
bool is_ending(const vx_global_t *global) noexcept;

// Ends the loop because of the exception that is being handled, and keeps the first one.
void fail_loop(vx_global_t *global) noexcept;

// Gives away the exception that ended the loop; none when none did.
std::exception_ptr release_failure(vx_global_t *global) noexcept;

// What lives while a loop serves: made of the loop before its first turn, destroyed after its last one.
using Companion = std::shared_ptr<void> (*)(event_base *base);

// Has each vx_global_run() from now on make one more. So the process manager's notices hang on the loop,
// which does not know of them. Throws std::bad_alloc.
void accompany_runs(Companion make);

// Calls a handler of the program's, unless the loop is to end; what it throws ends the loop.
template <typename Handler>
void call_handler(vx_global_t *global, const Handler &handler) noexcept
{
    if (is_ending(global)) {
        return;
    }
    try {
        handler();
    } catch (...) {
        fail_loop(global);
    }
}

} // namespace platform

#endif
