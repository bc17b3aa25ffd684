// Keeping the file within its limits, in steps so small that notifications can be handled between them.
#ifndef HISTORY_RETENTION_H
#define HISTORY_RETENTION_H

#include "database.h"

namespace history
{

// Deletes what is too old, then the oldest of what is too much, one small step of it, in a transaction, and
// gives a few free pages back to the disk. Returns whether there is more to do. Throws Error.
bool trim_step(const Database &database, const Limits &limits, Time now);

} // namespace history

#endif
