// What a live view cannot be believed for.
#include "cards/health.h"

#include <algorithm>

#include "admission/card_text.h"

namespace cg
{

namespace
{

// Whether a state that lasts began or ended now.
bool note(std::optional<Time> &since, bool lasts, Time at)
{
    if (since.has_value() == lasts) {
        return false;
    }
    since = lasts ? std::optional(at) : std::nullopt;
    return true;
}

} // namespace

bool Health::hear_store(int32_t db, bool connected, Time at)
{
    return connected ? lost_.erase(db) > 0 : lost_.emplace(db, at).second;
}

bool Health::hear_daemon(bool answers, Time at)
{
    return note(daemon_silent_, !answers, at);
}

bool Health::hear_recorder(bool at_work, Time last_heartbeat)
{
    return note(recorder_away_, !at_work, last_heartbeat);
}

bool Health::hear_history(bool readable, Time at)
{
    return note(history_unreadable_, !readable, at);
}

std::optional<Time> Health::store_lost() const
{
    const auto first = std::min_element(lost_.begin(), lost_.end(),
                                        [](const auto &a, const auto &b) { return a.second < b.second; });
    return first == lost_.end() ? std::nullopt : std::optional(first->second);
}

std::string Health::text(Time now) const
{
    std::string text;
    const auto add = [&](const char *what, const std::optional<Time> &since) {
        if (since) {
            text += (text.empty() ? "" : ", ") + std::string(what) + " since " + clock_text(*since, now);
        }
    };
    add("STORE LOST", store_lost());
    add("DAEMON SILENT", daemon_silent_);
    add("RECORDER AWAY", recorder_away_);
    add("HISTORY UNREADABLE", history_unreadable_);
    return text;
}

} // namespace cg
