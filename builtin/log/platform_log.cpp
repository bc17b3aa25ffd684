// The built-in platform's own log records; see the header for where they go and why.
#include "log/platform_log.h"

#include <cstring>

#include "log/text.h"
#include "loop/standard_error.h"

namespace platform
{

namespace
{

vx_zlog_category_t *&category()
{
    static vx_zlog_category_t *opened = nullptr;
    return opened;
}

const char *base_name(const char *path)
{
    const char *slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

} // namespace

void log_open(const std::string &module)
{
    category() = vx_zlog_init(module.c_str());
}

void notify_starter(const std::string &text)
{
    print_on_standard_error(visible(text) + '\n');
}

std::string log_text(const char *format, va_list values)
{
    constexpr size_t longest = 1023;
    return visible(formatted(format, values).value_or("").substr(0, longest));
}

void log_line(const char *file, const char *func, long line, int32_t level, const std::string &text)
{
    const char *name = base_name(file);
    if (category() == nullptr) {
        print_on_standard_error(std::string(name) + ':' + std::to_string(line) + ' ' + func + ": " + text +
                                '\n');
        return;
    }
    vxcg_zlog(category(), name, std::strlen(name), func, std::strlen(func), line, level, "%s", text.c_str());
}

void log_write(const char *file, const char *func, long line, int32_t level, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    const std::string text = log_text(format, values);
    va_end(values);
    log_line(file, func, line, level, text);
}

} // namespace platform
