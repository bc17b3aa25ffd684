// Where a part of the platform says what happens to it; see the header.
#include "log/messages.h"

#include <cstdarg>

namespace platform
{

void Messages::write(const char *file, const char *func, long line, int32_t level, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    const std::string text = log_text(format, values);
    va_end(values);
    if (handler_) {
        try {
            handler_(level, text);
        } catch (...) { // it must not: this may be called from C, and where nothing may throw
        }
    } else {
        log_line(file, func, line, level, text);
    }
}

void Messages::notify_starter(const std::string &text)
{
    if (!handler_) {
        platform::notify_starter(text);
    }
}

} // namespace platform
