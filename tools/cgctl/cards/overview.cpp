// Every card as an operator wants to know it.
#include "cards/overview.h"

#include <algorithm>

#include "admission/card_text.h"
#include "admission/feed.h"
#include "base/failure.h"
#include "base/text.h"
#include "command_line/session.h"
#include "modules/module_folder.h"
#include "records/databases.h"

namespace cg
{

namespace
{

using admission::CardTracker;
using admission::Time;
using admission::TrackedCard;

// The daemon asks those whom it found when it connected; without it, the folder is the next best. Nothing: it
// cannot be known.
std::optional<std::vector<std::string>> modules_asked(const DaemonView &daemon)
{
    if (daemon.problem.empty()) {
        return daemon.modules;
    }
    const ModuleFolder folder = read_module_folder(default_module_folder);
    return folder.readable || folder.missing ? std::optional(asked_of(folder)) : std::nullopt;
}

void feed_records(CardTracker &tracker, const StoredRecords &records, Time now)
{
    for (const admission::TrackedType &tracked : admission::tracked_types()) {
        for (const store::Record &record : records.at(tracked.descriptor)) {
            admission::feed(tracker, *record.message, false, {now, true, {record.revision, record.origin()}});
        }
    }
    tracker.snapshot_done(now);
}

// Why a card is denied: as the decision says, else as the daemon does.
std::string reason_of(const TrackedCard &card, const DaemonView &daemon)
{
    if (const admission::Decision *denial = denial_of(card)) {
        return denial->reason;
    }
    const auto found = daemon.cards.find(card.card.position);
    return card.denied && found != daemon.cards.end() ? found->second.reason : "";
}

} // namespace

void prime(CardTracker &tracker, const DaemonView &daemon, const Past &past,
           const std::vector<Position> &requests, Time now)
{
    if (auto modules = modules_asked(daemon)) {
        tracker.set_modules(std::move(*modules));
    }
    for (const admission::Decision &decision : past.decisions) {
        tracker.remember_decision(decision);
    }
    for (const history::OpenCheck &check : past.open) {
        if (std::find(requests.begin(), requests.end(), check.card.position) != requests.end()) {
            tracker.take_up(check, now);
        }
    }
    for (const Position &position : requests) {
        const auto found = daemon.cards.find(position);
        if (found != daemon.cards.end() && found->second.names_known) {
            const std::vector<std::string> &names = found->second.waiting_for;
            tracker.remember_list(position, names, names.empty());
        }
    }
}

std::string recorder_away_text(const Past &past, Time now)
{
    const auto age = std::chrono::duration_cast<std::chrono::milliseconds>(now - past.alive_at.value_or(now));
    return "cg_recorderd, which writes the history at " + visible(past.file) + ", has written nothing for " +
           span_text(age) + ": what happened since then is not in it";
}

bool CardRow::is_present() const
{
    return stored || tracked.request || tracked.power_off || tracked.cannot_start;
}

bool Overview::knows(int32_t db) const
{
    return std::none_of(away.begin(), away.end(),
                        [db](const AwayServer &server) { return server.databases.contains(db); });
}

int report_away(const Session &session, const Overview &overview)
{
    for (const AwayServer &away : overview.away) {
        std::string missing = away.databases.contains(result_database) ? "results by position" : "";
        if (away.databases.contains(device_database)) {
            missing += missing.empty() ? "" : ", ";
            missing += "custom status and power-off requests";
        }
        session.error(text_of(away) + "; " + missing + " are not shown");
    }
    return overview.away.empty() ? done : failed;
}

const CardRow *Overview::find(const Position &position) const
{
    const auto found = std::find_if(rows.begin(), rows.end(),
                                    [&](const CardRow &row) { return row.position() == position; });
    return found == rows.end() ? nullptr : &*found;
}

Overview read_overview(const Session &session, Store &store, const std::string &history_file)
{
    Overview overview{std::chrono::system_clock::now(), {}, read_past(history_file)};
    const StoredRecords records = read_records(store);
    overview.away = store.away();
    overview.daemon = ask_daemon(session.socket);
    CardTracker tracker;
    prime(tracker, overview.daemon, overview.past, requests_in(records), overview.now);
    feed_records(tracker, records, overview.now);
    const std::map<Position, Card> stored = cards_in(records);
    for (const TrackedCard *card : tracker.cards()) {
        const auto found = stored.find(card->card.position);
        overview.rows.push_back({*card, tracker.time_left(*card, overview.now),
                                 reason_of(*card, overview.daemon),
                                 found == stored.end() ? std::nullopt : std::optional(found->second)});
    }
    return overview;
}

} // namespace cg
