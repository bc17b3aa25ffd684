// The few functions of the platform that the daemon's file readers call: a log that formats what it is given,
// so that a wrong format or an unterminated text is seen, and keeps nothing. The recording platform was the
// alternative; it keeps a journal of everything, which these targets do not look at, and takes longer to
// build than they do.
#ifndef DAEMON_LOG_H
#define DAEMON_LOG_H

#include <cstdarg>
#include <cstdio>

#include "fuzz.h"
#include "vx_zlog.h"

struct vx_zlog_category {
    char unused;
};

inline vx_zlog_category_t log_category{};

vx_zlog_category_t *vx_zlog_init(const char * /*module*/)
{
    return &log_category;
}

__attribute__((format(printf, 3, 4))) int32_t at_snprintf(char *buffer, size_t size, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    const int length = vsnprintf(buffer, size, format, values);
    va_end(values);
    return length;
}

__attribute__((format(printf, 8, 9))) void vxcg_zlog(vx_zlog_category_t *category, const char * /*file*/,
                                                     size_t /*file_len*/, const char * /*func*/,
                                                     size_t /*func_len*/, long /*line*/, int32_t /*level*/,
                                                     const char *format, ...)
{
    fuzz::require(category == &log_category, "the log is the one that was opened");
    char text[2048];
    va_list values;
    va_start(values, format);
    const int length = vsnprintf(text, sizeof text, format, values);
    va_end(values);
    fuzz::require(length >= 0 && length < 1024, "a line of the log is bounded");
}

#endif
