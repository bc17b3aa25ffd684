/*
 * Logging library: categories, levels, log records with their source location; and the system log.
 *
 * Part of the porting surface: C linkage, C11 and C++20, nothing of any library behind it.
 */
#ifndef VX_ZLOG_H
#define VX_ZLOG_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define VX_PRINTF_FORMAT(format_index, first_value) __attribute__((format(printf, format_index, first_value)))
#else
#define VX_PRINTF_FORMAT(format_index, first_value)
#endif

/* A category of log records. Opaque; lives until the process ends. */
typedef struct vx_zlog_category vx_zlog_category_t;

/*
 * Opens the category of the named module.
 *
 * Returns its handle, owned by the library; null when the records could not be written anywhere.
 */
vx_zlog_category_t *vx_zlog_init(const char *module);

/*
 * Writes one record. Never fails and never throws: a record that cannot be written is lost.
 *
 * file, file_len  name of the source file and its length without terminator.
 * func, func_len  name of the function and its length without terminator.
 * line            line in the source file.
 * level           40 info, 60 notice, 80 warn, 100 error, 120 fatal; other numbers are written as such.
 * format          as printf's, with its values.
 */
void vxcg_zlog(vx_zlog_category_t *category, const char *file, size_t file_len, const char *func,
               size_t func_len, long line, int32_t level, const char *format, ...) VX_PRINTF_FORMAT(8, 9);

/* Formats as snprintf does: at most size - 1 characters and a terminator. Returns the length that the
 * whole text has, or negative on a bad format. */
int32_t at_snprintf(char *buffer, size_t size, const char *format, ...) VX_PRINTF_FORMAT(3, 4);

/*
 * Writes one line to the system log.
 *
 * severity  syslog's: 0 emergency to 7 debug.
 * program   the program's tag.
 * module    the module's tag.
 * flag      1 writes the line; reserved for platforms with more destinations.
 * format    as printf's, with its values. Control characters are made visible, so one call is one line.
 * Returns 0, or negative on a bad format.
 */
int32_t printk_syslog_ext(int32_t severity, const char *program, const char *module, int32_t flag,
                          const char *format, ...) VX_PRINTF_FORMAT(5, 6);

#ifdef __cplusplus
}
#endif

#endif
