// Times and spans of time as a user writes and reads them.
#ifndef BASE_TIMES_H
#define BASE_TIMES_H

#include <chrono>
#include <string>

namespace cg
{

using Time = std::chrono::system_clock::time_point;

// Reads "90s", "30m", "2h", "7d" (so long before `now`), or "2026-11-20", "2026-11-20T14:02",
// "2026-11-20T14:02:11" in local time, or in UTC with a "Z" at the end. Throws Failure (wrong usage) that
// names `option` for anything else.
Time parse_moment(const std::string &text, const char *option, Time now);

// "3 s", "12 min", "5 h", "2 d": what an eye wants to know of a span; never negative.
std::string span_text(std::chrono::milliseconds span);
// Seconds to the millisecond, with what digits they need: "0.25 s", "12 s"; from 100 s on whole ones.
std::string seconds_text(std::chrono::duration<double> span);
// In local time: "14:02:11" on the same day as `now`, else "2026-11-20 14:02:11".
std::string clock_text(Time time, Time now);
// The same in at most twelve columns: "14:02:11", else "20 Nov 14:02", or "20 Nov 2025" after months.
std::string short_clock_text(Time time, Time now);
// In local time: "2026-11-20 14:02:11".
std::string date_text(Time time);
// UTC with milliseconds, as in 2026-05-01T12:00:00.123Z: how every JSON form says a time.
std::string utc_text(Time time);

} // namespace cg

#endif
