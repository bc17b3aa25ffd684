// Times and spans of time as a user writes and reads them.
#include "base/times.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <iomanip>
#include <optional>
#include <sstream>

#include "base/failure.h"
#include "base/text.h"

namespace cg
{

namespace
{

using std::chrono::milliseconds;

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

// As strftime() has it, in local time or in UTC.
std::string formatted(Time time, const char *format, bool local)
{
    const time_t seconds =
        std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(time));
    tm parts{};
    if (local) {
        localtime_r(&seconds, &parts);
    } else {
        gmtime_r(&seconds, &parts);
    }
    std::ostringstream text;
    text << std::put_time(&parts, format);
    return text.str();
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

std::string span_text(milliseconds span)
{
    const int64_t seconds = std::max<int64_t>(0, std::chrono::floor<std::chrono::seconds>(span).count());
    constexpr int64_t minute = 60;
    constexpr int64_t hour = 60 * minute;
    constexpr int64_t day = 24 * hour;
    if (seconds < 10 * minute) {
        return std::to_string(seconds) + " s";
    }
    if (seconds < 2 * hour) {
        return std::to_string(seconds / minute) + " min";
    }
    return seconds < 2 * day ? std::to_string(seconds / hour) + " h" : std::to_string(seconds / day) + " d";
}

std::string seconds_text(std::chrono::duration<double> span)
{
    const int64_t count = std::chrono::round<milliseconds>(span).count();
    std::string text = std::to_string(count / 1000);
    if (const int64_t rest = count % 1000; rest > 0 && count < 100000) {
        std::string digits = std::to_string(1000 + rest).substr(1);
        digits.erase(digits.find_last_not_of('0') + 1);
        text += '.' + digits;
    }
    return text + " s";
}

std::string clock_text(Time time, Time now)
{
    const bool today = formatted(time, "%F", true) == formatted(now, "%F", true);
    return formatted(time, today ? "%T" : "%F %T", true);
}

std::string short_clock_text(Time time, Time now)
{
    constexpr std::chrono::hours months{24 * 300}; // a day of the year names one day only
    if (formatted(time, "%F", true) == formatted(now, "%F", true)) {
        return formatted(time, "%T", true);
    }
    const bool near = now - time < months && time - now < months;
    return formatted(time, near ? "%d %b %H:%M" : "%d %b %Y", true);
}

std::string date_text(Time time)
{
    return formatted(time, "%F %T", true);
}

std::string utc_text(Time time)
{
    const auto rest =
        std::chrono::duration_cast<milliseconds>(time - std::chrono::floor<std::chrono::seconds>(time));
    return formatted(time, "%FT%T", false) + '.' + std::to_string(1000 + rest.count()).substr(1) + 'Z';
}

} // namespace cg
