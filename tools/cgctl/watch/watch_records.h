// cgctl watch: what changes in the store.
#ifndef WATCH_WATCH_RECORDS_H
#define WATCH_WATCH_RECORDS_H

#include "command_line/session.h"
#include "watch/watch_options.h"

namespace cg
{

// Prints every change of records of the types, of all types when none is named, until the loop is stopped.
// Returns an exit status. Throws Failure: for wrong usage, and when the store does not answer at the start.
int watch_records(const Session &session, const WatchOptions &options);

} // namespace cg

#endif
