// Points in time as a user writes them.
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

} // namespace cg

#endif
