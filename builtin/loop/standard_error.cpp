// Writing to standard error without waiting; see the header.
#include "loop/standard_error.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <poll.h>
#include <unistd.h>

namespace platform
{

void write_without_waiting(int fd, std::string_view &text) noexcept
{
    while (!text.empty()) {
        pollfd room{fd, POLLOUT, 0};
        const int ready = poll(&room, 1, 0);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            return;
        }
        const ssize_t written = write(fd, text.data(), std::min<size_t>(text.size(), PIPE_BUF));
        if (written > 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (errno != EINTR) {
            return;
        }
    }
}

void print_on_standard_error(std::string_view text) noexcept
{
    write_without_waiting(STDERR_FILENO, text);
}

void report_on_standard_error(const char *format, ...) noexcept
{
    va_list values;
    va_start(values, format);
    char *text = nullptr;
    const int length = vasprintf(&text, format, values);
    va_end(values);
    if (length >= 0) {
        print_on_standard_error({text, static_cast<size_t>(length)});
        free(text);
    }
}

} // namespace platform
