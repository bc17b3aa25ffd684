// Log macros, verbosity, and the start of logging.
//
// A disabled message costs one comparison: nothing is formatted and no argument is evaluated. The source
// name in a record is the subsystem's, not the file's, because alarms and filters are bound to it; a file of
// app_cg_dbg/ defines APP_CG_LOG_SOURCE before it includes this header.
#ifndef APP_CG_DBG_LOGGING_H
#define APP_CG_DBG_LOGGING_H

#include <cstddef>
#include <cstdint>

#include "app_cg/app_cg.h"
#include "vx_zlog.h"

#ifndef APP_CG_LOG_SOURCE
#define APP_CG_LOG_SOURCE "app_cg.cpp"
#endif

// The function name in a record. A file that splits one callback over several functions defines it as the
// callback's name, for the same reason.
#ifndef APP_CG_LOG_FUNCTION
#define APP_CG_LOG_FUNCTION __func__
#endif

constexpr std::size_t APP_CG_LOG_LINE_LEN = 1024;

constexpr int32_t APP_CG_LEVEL_INFO = 40;
constexpr int32_t APP_CG_LEVEL_NOTICE = 60;
constexpr int32_t APP_CG_LEVEL_WARN = 80;
constexpr int32_t APP_CG_LEVEL_ERROR = 100;
constexpr int32_t APP_CG_LEVEL_FATAL = 120;

// Which messages are written. Unsigned, so that a negative number stored into it enables every message.
extern uint32_t app_cg_verbosity;

#define APP_CG_LOG_WRITE(level, ...)                                                                         \
    do {                                                                                                     \
        char app_cg_log_line[APP_CG_LOG_LINE_LEN] = {};                                                      \
        at_snprintf(app_cg_log_line, sizeof app_cg_log_line, __VA_ARGS__);                                   \
        if (g_app_cg_global.zlog_handle != nullptr) {                                                        \
            vxcg_zlog(g_app_cg_global.zlog_handle, APP_CG_LOG_SOURCE, sizeof APP_CG_LOG_SOURCE - 1,          \
                      APP_CG_LOG_FUNCTION, sizeof APP_CG_LOG_FUNCTION - 1, __LINE__, level, "%s",            \
                      app_cg_log_line);                                                                      \
        }                                                                                                    \
    } while (0)

#define APP_CG_LOG_ABOVE(threshold, level, ...)                                                              \
    do {                                                                                                     \
        if (app_cg_verbosity > (threshold)) {                                                                \
            APP_CG_LOG_WRITE(level, __VA_ARGS__);                                                            \
        }                                                                                                    \
    } while (0)

#define APP_CG_FATAL(...) APP_CG_LOG_WRITE(APP_CG_LEVEL_FATAL, __VA_ARGS__)
#define APP_CG_ERROR(...) APP_CG_LOG_ABOVE(0U, APP_CG_LEVEL_ERROR, __VA_ARGS__)
#define APP_CG_WARN(...) APP_CG_LOG_ABOVE(1U, APP_CG_LEVEL_WARN, __VA_ARGS__)
#define APP_CG_NOTICE(...) APP_CG_LOG_ABOVE(2U, APP_CG_LEVEL_NOTICE, __VA_ARGS__)
#define APP_CG_INFO(...) APP_CG_LOG_ABOVE(3U, APP_CG_LEVEL_INFO, __VA_ARGS__)

// Check and return. The call is evaluated again for the message, which happens only when errors are logged,
// and once more for the value returned: a retry that the daemon's users rely on.
#define APP_CG_CHECK_RETURN(call)                                                                            \
    do {                                                                                                     \
        if ((call) != 0) {                                                                                   \
            APP_CG_ERROR("failed,rv %d", (call));                                                            \
            return (call);                                                                                   \
        }                                                                                                    \
    } while (0)

// Reads the level file and opens the log. Returns 0, or -11 when the logging library cannot be initialised.
int32_t app_cg_zlog_init();

// Sets the verbosity, unchecked. Returns 0.
int32_t app_cg_log_level(int32_t level);

#endif
