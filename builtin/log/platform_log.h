// How the built-in platform itself logs: records into the module's own log, through the platform's logging.
//
// A log of its own would be one more file that nobody reads; standard error is used only as long as no
// log could be opened.
#ifndef LOG_PLATFORM_LOG_H
#define LOG_PLATFORM_LOG_H

#include <cstdarg>
#include <cstdint>
#include <string>

#include "vx_zlog.h"

namespace platform
{

enum LogLevel : int32_t { log_info = 40, log_notice = 60, log_warn = 80, log_error = 100 };

// Makes log_write() write into the log of the named module from now on.
void log_open(const std::string &module);

// The text of a record: formatted as vprintf does, at most 1023 bytes of it, control characters made visible.
__attribute__((format(printf, 1, 0))) std::string log_text(const char *format, va_list values);

// Writes one record with a text that log_text() made. file, func, line: the place in the source that writes
// it; level: of enum LogLevel.
void log_line(const char *file, const char *func, long line, int32_t level, const std::string &text);

// Writes one record: `format` as printf's. Control characters in the finished text are made visible, so that
// stored bytes cannot forge a line. Use PLATFORM_LOG, which fills in the place.
void log_write(const char *file, const char *func, long line, int32_t level, const char *format, ...)
    VX_PRINTF_FORMAT(5, 6);

// Prints on standard error what the one who starts a program must see. Control characters are made visible.
void notify_starter(const std::string &text);

} // namespace platform

// A macro because the place of the call is wanted; std::source_location is unknown to the checker in use.
#define PLATFORM_LOG(level, ...) platform::log_write(__FILE__, __func__, __LINE__, (level), __VA_ARGS__)

#endif
