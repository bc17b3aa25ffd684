// Every card as an operator wants to know it.
#include "cards/overview.h"
#include "records/position_key.h"

#include <algorithm>

#include "admission/card_text.h"
#include "admission/feed.h"
#include "base/text.h"
#include "command_line/session.h"
#include "modules/module_folder.h"

namespace cg
{

namespace
{

using admission::CardTracker;
using admission::State;
using admission::Time;
using admission::TrackedCard;

// The daemon asks those whom it found when it connected; without it, the folder is the next best. Nothing: it
// cannot be told.
std::optional<std::vector<std::string>> modules_asked(const DaemonView &daemon)
{
    if (daemon.problem.empty()) {
        return daemon.modules;
    }
    const ModuleFolder folder = read_module_folder(default_module_folder);
    return folder.readable || folder.missing ? std::optional(asked_of(folder)) : std::nullopt;
}

std::vector<Position> requests_in(const StoredRecords &records)
{
    std::vector<Position> positions;
    for (const StoredRecord &record : records.at(&record_type("app_cg_card_check_info"))) {
        positions.push_back(position_in(record.json["index"]));
    }
    return positions;
}

void feed_records(CardTracker &tracker, const StoredRecords &records, Time now)
{
    for (const admission::TrackedType &tracked : admission::tracked_types()) {
        for (const auto &[record, json] : records.at(&record_type(tracked.descriptor->name))) {
            admission::feed(tracker, *record.message, false, {now, true, {record.revision, record.origin()}});
        }
    }
    tracker.snapshot_done(now);
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
    return "cg_recorderd, which writes the history at " + visible(past.file) + ", has been away for " +
           span_text(age) + ": what happened since then is not in it";
}

bool CardRow::is_present() const
{
    return stored || tracked.request || tracked.power_off || tracked.cannot_start;
}

Overview::Overview(const Session &session, Store &store, const std::string &history_file)
    : now_(std::chrono::system_clock::now()), past_(read_past(history_file))
{
    const StoredRecords records = read_records(store);
    daemon_ = ask_daemon(session.socket);
    CardTracker tracker;
    prime(tracker, daemon_, past_, requests_in(records), now_);
    feed_records(tracker, records, now_);
    std::map<Position, Card> stored;
    for (Card &card : cards_in(records)) {
        const Position position = card.position;
        stored.emplace(position, std::move(card));
    }
    for (const TrackedCard *card : tracker.cards()) {
        add_row(tracker, *card, stored);
    }
}

void Overview::add_row(const CardTracker &tracker, const TrackedCard &card, std::map<Position, Card> &stored)
{
    CardRow row;
    row.tracked = card;
    row.left = tracker.time_left(card, now_);
    if (const auto found = stored.find(card.card.position); found != stored.end()) {
        row.stored = std::move(found->second);
    }
    if (card.denied) {
        const bool known = denial_of(card) != nullptr;
        const auto told = daemon_.cards.find(card.card.position);
        row.reason = known ? card.last->reason : told != daemon_.cards.end() ? told->second.reason : "";
    }
    rows_.push_back(std::move(row));
}

const CardRow *Overview::find(const Position &position) const
{
    const auto found = std::find_if(rows_.begin(), rows_.end(),
                                    [&](const CardRow &row) { return row.position() == position; });
    return found == rows_.end() ? nullptr : &*found;
}

void Overview::tell_what_is_missing(const Session &session) const
{
    if (!past_.problem.empty()) {
        session.notice(visible(past_.problem) + ": times, answers and reasons are not known");
    } else if (Heartbeat{past_.alive_at}.is_old(now_)) {
        session.notice(recorder_away_text(past_, now_));
    }
    const bool somebody_waits = std::any_of(
        rows_.begin(), rows_.end(), [](const CardRow &row) { return row.tracked.state == State::waiting; });
    if (daemon_.is_silent) {
        session.notice(silence_text(daemon_));
    } else if (!daemon_.problem.empty() && somebody_waits) {
        session.notice("cannot ask the daemon which modules it is waiting for: " + visible(daemon_.problem));
    }
}

Json Overview::sources() const
{
    const auto problem = [](const std::string &text) { return text.empty() ? Json(nullptr) : Json(text); };
    return {{"history",
             {{"file", past_.file},
              {"problem", problem(past_.problem)},
              {"alive_at", past_.alive_at ? Json(utc_text(*past_.alive_at)) : Json(nullptr)}}},
            {"daemon", {{"problem", problem(daemon_.problem)}}}};
}

Json card_json(const CardRow &row)
{
    Json json;
    if (row.stored) {
        json = row.stored->json();
    } else {
        const Position &position = row.position();
        json = {{"card", position.text()},        {"devid", position.devid},
                {"slotid", position.slotid},      {"sslotid", position.sslotid},
                {"request", row.tracked.request}, {"power_off", row.tracked.power_off}};
    }
    json.update(admission_json(row.tracked, row.left));
    json["reason"] = row.reason.empty() ? Json(nullptr) : Json(row.reason);
    return json;
}

} // namespace cg
