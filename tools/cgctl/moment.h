// Points in time as a user writes them.
#ifndef CGCTL_MOMENT_H
#define CGCTL_MOMENT_H

#include <string>

#include "admission/decision.h"

namespace cgctl
{

// Reads "90s", "30m", "2h", "7d" (so long before `now`), or "2026-11-20", "2026-11-20T14:02",
// "2026-11-20T14:02:11" in local time, or in UTC with a "Z" at the end. Throws Failure (wrong usage) that
// names `option` for anything else.
admission::Time parse_moment(const std::string &text, const char *option, admission::Time now);

} // namespace cgctl

#endif
