// Where log records go: a line to standard error or a rotated file, or an entry of the journal.
#ifndef LOG_LOG_DESTINATION_H
#define LOG_LOG_DESTINATION_H

#include <string>

#include "log/log_record.h"

namespace platform
{

// Opens the destination that the text names (see vx_zlog.cpp) for the records of a module. Throws
// std::exception with a text for the operator when it cannot be written to, or is none.
LogDestination open_log_destination(const std::string &where, const std::string &module);

} // namespace platform

#endif
