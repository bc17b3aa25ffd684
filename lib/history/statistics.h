// How the modules answer, from what was recorded.
#ifndef HISTORY_STATISTICS_H
#define HISTORY_STATISTICS_H

#include "database.h"

namespace history
{

// Of answers and decisions since `from`, or of all; by the module's name. Throws Error.
std::vector<ModuleStatistics> read_module_statistics(const Database &database, std::optional<Time> from);

} // namespace history

#endif
