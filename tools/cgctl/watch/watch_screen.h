// cgctl watch: the live view.
#ifndef WATCH_WATCH_SCREEN_H
#define WATCH_WATCH_SCREEN_H

#include "command_line/session.h"
#include "watch/watch_options.h"

namespace cg
{

// Shows the cards and what happens to them on the terminal until the user quits. Returns an exit status.
// Throws Failure when the store does not answer at the start, and when nothing is known of the terminal.
int watch_screen(const Session &session, const WatchOptions &options);

} // namespace cg

#endif
