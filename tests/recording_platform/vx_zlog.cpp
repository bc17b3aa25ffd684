// The logging library and the system log: every record is a line of the journal.
#include "vx_zlog.h"

#include <array>
#include <cstdarg>
#include <cstdio>

#include "state.h"

namespace
{

// Formatted into a buffer that fits, so that a text that was not cut shows up as such.
__attribute__((format(printf, 1, 0))) std::string formatted(const char *format, va_list values)
{
    va_list again;
    va_copy(again, values);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0) {
        return "(bad format)";
    }
    std::vector<char> text(static_cast<std::size_t>(length) + 1);
    (void)std::vsnprintf(text.data(), text.size(), format, values);
    return text.data();
}

} // namespace

using namespace recording;

vx_zlog_category_t *vx_zlog_init(const char *module)
{
    record_line("vx_zlog_init(" + printable(module) + ")");
    return finish_call("vx_zlog_init") == 0 ? category() : nullptr;
}

void vxcg_zlog(vx_zlog_category_t *category, const char *file, size_t file_len, const char *func,
               size_t func_len, long line, int32_t level, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    const std::string text = formatted(format, values);
    va_end(values);
    LogCall &log = state().last_log;
    log = {std::string(file, file_len), std::string(func, func_len), line, level, format, text};
    record_line("log " + std::to_string(level) + " " + log.file + " " + log.function + ": " + text +
                (log.format == "%s" ? "" : " format=" + log.format) +
                (category == recording::category() ? "" : " category=wrong"));
    (void)finish_call("vxcg_zlog");
}

int32_t at_snprintf(char *buffer, size_t size, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    const int length = std::vsnprintf(buffer, size, format, values);
    va_end(values);
    return length;
}

int32_t printk_syslog_ext(int32_t severity, const char *program, const char *module, int32_t flag,
                          const char *format, ...)
{
    va_list values;
    va_start(values, format);
    const std::string text = formatted(format, values);
    va_end(values);
    state().syslog_formats.push_back(printable(format));
    record_line("syslog " + std::to_string(severity) + " " + printable(program) + " " + printable(module) +
                " " + std::to_string(flag) + ": " + text);
    return finish_call("printk_syslog_ext");
}

namespace recording
{

const LogCall &last_log()
{
    return state().last_log;
}

const std::vector<std::string> &syslog_formats()
{
    return state().syslog_formats;
}

} // namespace recording
