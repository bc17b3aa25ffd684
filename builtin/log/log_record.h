// A log record, and whatever it can be handed to.
#ifndef LOG_LOG_RECORD_H
#define LOG_LOG_RECORD_H

#include <cstdint>
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

} // namespace platform

#endif
