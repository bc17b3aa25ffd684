// Writing to standard error without waiting for who reads it: it may be a pipe that nobody reads.
//
// O_NONBLOCK was rejected: it belongs to the open file, which others share. So there is a look before each
// piece, and the pieces are as short as a pipe that has room takes at once. Who writes to the same pipe in
// between can make one piece wait.
#ifndef LOOP_STANDARD_ERROR_H
#define LOOP_STANDARD_ERROR_H

#include <string_view>

namespace platform
{

// Writes as much as there is room for.
// fd    of a pipe, a socket, a terminal or a file; a file always has room
// text  what has been written is taken off its front
void write_without_waiting(int fd, std::string_view &text) noexcept;

// Prints a text on standard error, as far as there is room.
void print_on_standard_error(std::string_view text) noexcept;

// The same with printf's arguments.
__attribute__((format(printf, 1, 2))) void report_on_standard_error(const char *format, ...) noexcept;

} // namespace platform

#endif
