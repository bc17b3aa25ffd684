// System log, on syslog(3).
//
// Severity, program and module stand in the text as well as in the record: people bind alarms to the line,
// and a syslog daemon's file format shows neither severity nor module. The journal's own calls could carry
// them as fields, but not every device runs a journal.
#include "vx_zlog.h"

#include <cerrno>
#include <cstdarg>
#include <exception>
#include <string>

#include <syslog.h>

#include "log/text.h"

namespace
{

// Says who we are. syslog(3) keeps the pointer, so the name must stay where it is as long as it is used.
// The socket is opened with the first line and opened again when the system log went away, by the C library.
void call_ourselves(const std::string &program)
{
    static std::string ident;
    if (ident != program) {
        closelog();
        ident = program;
        openlog(ident.c_str(), LOG_PID, LOG_DAEMON);
    }
}

} // namespace

int32_t printk_syslog_ext(int32_t severity, const char *program, const char *module, int32_t flag,
                          const char *format, ...)
try {
    if (severity < LOG_EMERG || severity > LOG_DEBUG || program == nullptr || module == nullptr ||
        format == nullptr) {
        return -EINVAL;
    }
    va_list values;
    va_start(values, format);
    const auto text = platform::formatted(format, values);
    va_end(values);
    if (!text) {
        return -EINVAL;
    }
    if (flag != 1) {
        return 0; // no other destination than the system log exists here
    }
    const std::string line =
        platform::visible(std::string(program) + "-" + std::to_string(severity) + "-" + module + ": ") +
        platform::visible(platform::without_line_break(*text));
    call_ourselves(program);
    syslog(LOG_MAKEPRI(LOG_DAEMON, severity), "%s", line.c_str());
    return 0;
} catch (const std::exception &) {
    return -ENOMEM;
}
