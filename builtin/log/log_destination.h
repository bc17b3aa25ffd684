// Where log records go: a line to standard error or a rotated file, or an entry of the journal.
#ifndef LOG_LOG_DESTINATION_H
#define LOG_LOG_DESTINATION_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace platform
{

struct LogRecord {
    std::string_view file;
    std::string_view function;
    std::string_view text; // one line, control bytes already made visible
    long line;
    int32_t level;
};

class LogDestination
{
public:
    LogDestination() = default;
    virtual ~LogDestination() = default;
    LogDestination(const LogDestination &) = delete;
    LogDestination &operator=(const LogDestination &) = delete;

    // Hands one record to the system. A record that cannot be written is lost.
    virtual void write(const LogRecord &record) = 0;
};

// Returns the level's name: "info", "notice", "warn", "error", "fatal", or the number.
std::string log_level_name(int32_t level);

// Opens the destination that the text names (see vx_zlog.cpp) for the records of a module. Throws
// std::exception with a text for the operator when it cannot be written to, or is none.
std::unique_ptr<LogDestination> open_log_destination(const std::string &where, const std::string &module);

} // namespace platform

#endif
