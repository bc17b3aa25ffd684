// Points in time as a user writes them.
#include "base/times.h"

#include <array>
#include <ctime>
#include <optional>

#include "base/failure.h"
#include "base/text.h"

namespace cg
{

namespace
{

// What is beyond is a slip, and a clock's count of nanoseconds would run over.
constexpr std::chrono::hours longest_span{24 * 36500};
constexpr int first_year = 1970;
constexpr int last_year = 2200;

std::optional<Time> so_long_ago(const std::string &text, Time now)
{
    constexpr int64_t most = std::chrono::seconds(longest_span).count();
    const auto count = to_number(text.substr(0, text.size() - 1), 0, most);
    if (!count) {
        return std::nullopt;
    }
    const auto unit = std::string_view("smhd").find(text.back());
    if (unit == std::string_view::npos) {
        return std::nullopt;
    }
    constexpr std::array<int64_t, 4> seconds{1, 60, 3600, 86400};
    const std::chrono::seconds span(*count * seconds.at(unit));
    return span <= longest_span ? std::optional(now - span) : std::nullopt;
}

std::optional<Time> as_date(std::string text)
{
    const bool utc = text.back() == 'Z';
    text.resize(text.size() - (utc ? 1 : 0));
    for (const char *format : {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%dT%H:%M", "%Y-%m-%d"}) {
        tm parts{};
        const char *end = strptime(text.c_str(), format, &parts);
        constexpr int before_all = 1900;
        const int year = parts.tm_year + before_all;
        if (end != nullptr && *end == '\0' && year >= first_year && year <= last_year) {
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
    throw Failure(
        wrong_usage,
        std::string(option) + ' ' + in_quotes(text) +
            ": not a time; 90s, 30m, 2h or 7d ago (36500d at most), or 2026-11-20, 2026-11-20T14:02, with Z "
            "at the end in UTC, of the years 1970 to 2200");
}

} // namespace cg
