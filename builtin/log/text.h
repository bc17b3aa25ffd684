// How texts from outside become one line of a log.
//
// Shared by the logging library and the system log: both must keep a value that holds a line break from
// looking like a second record. Bytes above 0x7f pass untouched, because texts in other encodings than UTF-8
// are logged as they are.
#ifndef LOG_TEXT_H
#define LOG_TEXT_H

#include <cstdarg>
#include <optional>
#include <string>
#include <string_view>

namespace platform
{

// Formats as vprintf does; nothing when the format is a bad one.
__attribute__((format(printf, 1, 0))) std::optional<std::string> formatted(const char *format,
                                                                           va_list values);

// Returns the text with each control byte (below 0x20, and 0x7f) written as \xNN.
std::string visible(std::string_view text);

// Returns the text without the one line break (\n or \r\n) that it may end in.
std::string_view without_line_break(std::string_view text);

} // namespace platform

#endif
