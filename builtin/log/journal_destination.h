// The system's journal as a destination of log records.
#ifndef LOG_JOURNAL_DESTINATION_H
#define LOG_JOURNAL_DESTINATION_H

#include <string>
#include <string_view>

#include "log/log_record.h"

namespace platform
{

// Opens the journal for the records of a module, which is SYSLOG_IDENTIFIER there. Throws std::system_error
// where there is no journal.
LogAttempt open_journal(const std::string &module);

// Appends one field to an entry. A value of several lines goes with its length before it.
void append_journal_field(std::string &entry, std::string_view name, std::string_view value);

} // namespace platform

#endif
