// The notification protocol of the process manager; see the header.
#include "process/service_notice.h"

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <system_error>

#include <unistd.h>

#include "log/unix_datagram.h"

namespace platform
{

namespace
{

std::string_view text_of(const char *name)
{
    const char *value = getenv(name);
    return value == nullptr ? std::string_view{} : std::string_view(value);
}

std::optional<int64_t> number_of(std::string_view text)
{
    int64_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    return error == std::errc{} && stopped == end ? std::optional(number) : std::nullopt;
}

// Nobody at the other end of NOTIFY_SOCKET is as good as no socket at all.
bool nobody_listens(int result)
{
    return result == -ENOENT || result == -ECONNREFUSED;
}

bool is_registered = false;

} // namespace

int notify_manager(std::string_view state) noexcept
try {
    const std::string_view manager = text_of("NOTIFY_SOCKET");
    return manager.empty() ? 0 : send_datagram(open_datagram_socket(), manager, state);
} catch (const std::system_error &problem) {
    return -problem.code().value();
}

int register_service() noexcept
{
    const int result = notify_manager("STATUS=Starting");
    if (result < 0 && !nobody_listens(result)) {
        fprintf(stderr, "platform: cannot reach the process manager at NOTIFY_SOCKET=%s: %s\n",
                getenv("NOTIFY_SOCKET"), strerror(-result));
        return result;
    }
    is_registered = true;
    return 0;
}

bool is_registered_service() noexcept
{
    return is_registered;
}

std::optional<std::chrono::microseconds> watchdog_interval()
{
    const std::string_view whose = text_of("WATCHDOG_PID");
    const std::optional<int64_t> interval = number_of(text_of("WATCHDOG_USEC"));
    if (!interval || *interval <= 0 || (!whose.empty() && number_of(whose) != int64_t{getpid()})) {
        return std::nullopt;
    }
    return std::chrono::microseconds(*interval);
}

} // namespace platform
