// cgctl watch: an event a line.
#ifndef WATCH_WATCH_EVENTS_H
#define WATCH_WATCH_EVENTS_H

#include "command_line/session.h"
#include "watch/watch_options.h"

namespace cg
{

// Prints what happens to cards, an event a line, until the loop is stopped. Returns an exit status. Throws
// Failure when the store does not answer at the start.
int watch_events(const Session &session, const WatchOptions &options);

} // namespace cg

#endif
