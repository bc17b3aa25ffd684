// What a live view cannot be believed for.
#include "cards/health.h"

#include "admission/card_text.h"
#include "records/databases.h"

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
    const auto found = lost_.find(card_database);
    return found == lost_.end() ? std::nullopt : std::optional(found->second);
}

std::string Health::text(Time now) const
{
    std::string text;
    const auto add = [&](const std::string &what, const std::optional<Time> &since) {
        if (since) {
            text += (text.empty() ? "" : ", ") + what + " since " + clock_text(*since, now);
        }
    };
    add("STORE LOST", store_lost());
    for (const auto &[db, since] : lost_) {
        if (!store_lost()) {
            add("DATABASE " + std::to_string(db) + " LOST", since);
        }
    }
    add("DAEMON SILENT", daemon_silent_);
    add("RECORDER AWAY", recorder_away_);
    add("HISTORY UNREADABLE", history_unreadable_);
    return text;
}

} // namespace cg
