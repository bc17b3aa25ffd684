// System log, in the form of syslog(3), but without its waiting: see log/system_log.h.
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

#include "log/system_log.h"
#include "log/text.h"

namespace
{

// Until the process ends, which gives what waits a little time.
platform::SystemLog &system_log()
{
    static platform::SystemLog log(_PATH_LOG);
    return log;
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
    system_log().write(platform::system_log_line(LOG_MAKEPRI(LOG_DAEMON, severity), program, line));
    return 0;
} catch (const std::exception &) {
    return -ENOMEM;
}
