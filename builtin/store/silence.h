// How long nothing was heard of the store.
//
// The porting surface tells of a loss when it is noticed, which for a server that hangs is seconds after the
// last change was heard. A tool that says what it may have missed has to know since when.
#ifndef STORE_SILENCE_H
#define STORE_SILENCE_H

#include <chrono>
#include <cstdint>
#include <optional>

#include "vx_mom.h"

namespace vx_mom
{

// The time since a change, or the answer to a ping, came on the connection that carries a database's
// subscriptions; a ping is sent each second. All changes before that were delivered. When the connection is
// lost: on that one, until another one stands. Nothing when there was none, or the arguments are wrong.
std::optional<std::chrono::milliseconds> silent_for(vx_global_t *global, int32_t db) noexcept;

} // namespace vx_mom

#endif
