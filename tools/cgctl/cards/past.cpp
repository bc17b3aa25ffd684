// What the recorder's file remembers of the cards.
#include "cards/past.h"

#include "admission/card_text.h"
#include "history/reader.h"

namespace cg
{

Past read_past(const std::string &file)
{
    Past past;
    past.file = history::path_or_default(file);
    try {
        const history::Reader reader(past.file);
        past.alive_at = reader.alive_at();
        past.open = reader.open_checks();
        past.decisions = reader.last_decisions();
    } catch (const history::Error &error) {
        past.problem = error.what();
    }
    return past;
}

bool Heartbeat::is_old(admission::Time now) const
{
    constexpr std::chrono::seconds old{45};
    return at && now - *at > old;
}

std::string not_recorded_text(const Heartbeat &heartbeat, admission::Time now)
{
    if (!heartbeat.at) {
        return "nothing was recorded yet; is cg_recorderd running?";
    }
    return heartbeat.is_old(now) ? "nothing has been recorded since " + clock_text(*heartbeat.at, now) +
                                       "; is cg_recorderd running?"
                                 : "";
}

Heartbeat read_heartbeat(const std::string &file)
{
    try {
        return {history::Reader(history::path_or_default(file)).alive_at()};
    } catch (const history::Error &error) {
        return {std::nullopt, error.will_pass() ? "" : error.what()};
    }
}

} // namespace cg
