// What the parts of the built-in platform share: the event loop, and a place to live as long as it does.
//
// A context owns its parts: the store client and the debug shell hang themselves into it and are destroyed
// by vx_global_finish() before the loop is. Globals were the alternative; they would be torn down after the
// loop they point to.
#ifndef LOOP_PLATFORM_CONTEXT_H
#define LOOP_PLATFORM_CONTEXT_H

#include <memory>
#include <string>

#include "vx_thread.h"

struct event_base;

namespace platform
{

enum class Slot { store_client, debug_shell };

// The loop of a context. Never null; owned by the context.
event_base *event_base_of(vx_global_t *global);

// The module's name that the context was created with.
const std::string &module_of(vx_global_t *global);

// A part's place in the context; empty until the part puts itself there. Parts are destroyed in the order of
// the enumeration, before the loop.
std::shared_ptr<void> &slot_of(vx_global_t *global, Slot slot);

} // namespace platform

#endif
