// Logging library: one record is one line, or one entry of the journal.
//
// The destination is the setting VX_ZLOG:
//   stderr                           the default
//   file:/path[:max_bytes[:files]]   a file that is rotated at max_bytes (default 1 MiB), with so many
//                                    old ones kept beside it (default 4)
//   journal                          the system's journal, with the source location in fields of its own
//   none                             nowhere; for a tool whose standard error is read by a program
//
// spdlog writes the lines. Its asynchronous mode was rejected: what an operator looks for after a crash is
// the last record, so each one is handed to the system before the call returns.
#include "vx_zlog.h"

#include <cstdarg>
#include <cstdio>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "log/log_destination.h"
#include "log/text.h"
#include "loop/settings.h"
#include "loop/standard_error.h"

struct vx_zlog_category {
    std::string module;
    platform::LogDestination destination;
};

namespace
{

using Categories = std::map<std::string, vx_zlog_category_t>;

// Never destroyed: whatever runs at the process's end may still log.
Categories &categories()
{
    static auto &all = *std::make_unique<Categories>().release();
    return all;
}

} // namespace

vx_zlog_category_t *vx_zlog_init(const char *module)
try {
    if (module == nullptr) {
        return nullptr;
    }
    const auto known = categories().find(module);
    if (known != categories().end()) {
        return &known->second;
    }
    const std::string where = platform::setting("VX_ZLOG", "stderr");
    try {
        vx_zlog_category_t category{module, platform::open_log_destination(where, module)};
        return &categories().emplace(module, std::move(category)).first->second;
    } catch (const std::exception &problem) {
        platform::report_on_standard_error("platform: cannot log to VX_ZLOG=%s: %s\n", where.c_str(),
                                           problem.what());
        return nullptr;
    }
} catch (const std::exception &) {
    return nullptr;
}

void vxcg_zlog(vx_zlog_category_t *category, const char *file, size_t file_len, const char *func,
               size_t func_len, long line, int32_t level, const char *format, ...)
try {
    if (category == nullptr || !category->destination || file == nullptr || func == nullptr ||
        format == nullptr) {
        return;
    }
    va_list values;
    va_start(values, format);
    const auto text = platform::formatted(format, values);
    va_end(values);
    if (!text) {
        return;
    }
    const std::string shown = platform::visible(platform::without_line_break(*text));
    category->destination({{file, file_len}, {func, func_len}, shown, line, level});
} catch (const std::exception &) {
    return; // a record is never worth the daemon
}

int32_t at_snprintf(char *buffer, size_t size, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    const int length = vsnprintf(buffer, size, format, values);
    va_end(values);
    return length;
}
