// A log record, and what it is handed to.
#ifndef LOG_LOG_RECORD_H
#define LOG_LOG_RECORD_H

#include <cstdint>
#include <functional>
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

// Hands one record to the system, and never waits for who reads it. A record that cannot be written is lost.
// Empty: nowhere.
using LogDestination = std::function<void(const LogRecord &)>;

// The same; returns whether the record was written.
using LogAttempt = std::function<bool(const LogRecord &)>;

} // namespace platform

#endif
