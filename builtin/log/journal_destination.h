// The system's journal as a destination of log records.
#ifndef LOG_JOURNAL_DESTINATION_H
#define LOG_JOURNAL_DESTINATION_H

#include <string>
#include <string_view>

#include "log/log_record.h"
#include "loop/descriptor.h"

namespace platform
{

class JournalDestination final : public LogDestination
{
public:
    // module  who logs, SYSLOG_IDENTIFIER in the journal. Throws std::system_error where there is no journal.
    explicit JournalDestination(std::string module);
    void write(const LogRecord &record) override;

private:
    std::string module_;
    Descriptor socket_;
};

// Appends one field to an entry. A value of several lines goes with its length before it.
void append_journal_field(std::string &entry, std::string_view name, std::string_view value);

} // namespace platform

#endif
