// Points in time as a user writes them.
#include "moment.h"

#include <array>
#include <ctime>
#include <optional>

#include "failure.h"
#include "text.h"

namespace cgctl
{

namespace
{

using admission::Time;

std::optional<Time> so_long_ago(const std::string &text, Time now)
{
    constexpr int64_t most = 1'000'000;
    const auto count = to_number(text.substr(0, text.size() - 1), 0, most);
    if (!count) {
        return std::nullopt;
    }
    switch (text.back()) {
    case 's':
        return now - std::chrono::seconds(*count);
    case 'm':
        return now - std::chrono::minutes(*count);
    case 'h':
        return now - std::chrono::hours(*count);
    case 'd':
        return now - std::chrono::hours(24 * *count);
    default:
        return std::nullopt;
    }
}

std::optional<Time> as_date(std::string text)
{
    const bool utc = text.back() == 'Z';
    text.resize(text.size() - (utc ? 1 : 0));
    for (const char *format : {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%dT%H:%M", "%Y-%m-%d"}) {
        tm parts{};
        const char *end = strptime(text.c_str(), format, &parts);
        if (end != nullptr && *end == '\0') {
            parts.tm_isdst = -1;
            return std::chrono::system_clock::from_time_t(utc ? timegm(&parts) : mktime(&parts));
        }
    }
    return std::nullopt;
}

} // namespace

Time parse_moment(const std::string &text, const char *option, Time now)
{
    if (!text.empty()) {
        if (const auto ago = so_long_ago(text, now)) {
            return *ago;
        }
        if (const auto date = as_date(text)) {
            return *date;
        }
    }
    throw Failure(wrong_usage,
                  std::string(option) + ' ' + in_quotes(text) +
                      ": not a time; 90s, 30m, 2h or 7d ago, or 2026-11-20, 2026-11-20T14:02, with Z "
                      "at the end in UTC");
}

} // namespace cgctl
