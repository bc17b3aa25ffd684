// Every card as an operator wants to know it.
#include "cards/overview.h"
#include "records/position_key.h"

#include <algorithm>

#include "admission/card_text.h"
#include "admission/feed.h"
#include "base/text.h"
#include "command_line/session.h"
#include "modules/module_folder.h"
#include "vx_mom.h"

namespace cg
{

namespace
{

using admission::CardTracker;
using admission::State;
using admission::Time;
using admission::TrackedCard;

// The daemon's time-out, and what may pass until its end is seen. An open check that is older is one whose
// end the recorder missed.
constexpr std::chrono::seconds longest_check = admission::check_timeout + std::chrono::seconds{30};

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

const history::OpenCheck *open_check(const Past &past, const Position &position, Time now)
{
    const auto found = std::find_if(past.open.begin(), past.open.end(), [&](const history::OpenCheck &check) {
        return check.card.position == position &&
               (!check.requested_at || now - *check.requested_at < longest_check);
    });
    return found == past.open.end() ? nullptr : &*found;
}

void prime_request(CardTracker &tracker, const DaemonCard *daemon, const history::OpenCheck *open,
                   const Position &position)
{
    if (daemon == nullptr && open == nullptr) {
        return;
    }
    history::OpenCheck check = open == nullptr ? history::OpenCheck{} : *open;
    check.card.position = position;
    if (daemon != nullptr) {
        check.waiting_for = daemon->waiting_for;
        check.any_will_do = daemon->waiting_for.empty();
    }
    tracker.remember_open(check);
}

std::vector<Position> requests_in(const StoredRecords &records)
{
    std::vector<Position> positions;
    for (const Json &record : records.at(&record_type("app_cg_card_check_info"))) {
        positions.push_back(position_in(record["index"]));
    }
    return positions;
}

void feed_records(CardTracker &tracker, const StoredRecords &records, Time now)
{
    for (const admission::TrackedType &tracked : admission::tracked_types()) {
        const RecordType &type = record_type(tracked.descriptor->name);
        for (const Json &record : records.at(&type)) {
            const MessagePtr message = from_json(*type.descriptor, record);
            admission::feed(tracker, VX_MOM_CMD_SCANNED, *message, true, now);
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
    for (const Position &position : requests) {
        const auto found = daemon.cards.find(position);
        const bool is_known = found != daemon.cards.end() && found->second.names_known;
        prime_request(tracker, is_known ? &found->second : nullptr, open_check(past, position, now),
                      position);
    }
}

std::string recorder_away_text(const Past &past, Time now)
{
    const auto age = std::chrono::duration_cast<std::chrono::milliseconds>(now - past.alive_at.value_or(now));
    return "cg_recorderd, which writes the history at " + visible(past.file) + ", has been away for " +
           span_text(age) + ": what happened since then is not in it";
}

std::string unseen_text(std::size_t count)
{
    return std::to_string(count) + (count == 1 ? " card was" : " cards were") +
           " passed unseen: cg_recorderd did not hear whether a module passed " +
           (count == 1 ? "it" : "them") + " or was only silent";
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
        session.notice(visible(past_.problem) + ": times, deciders and admissions by silence are not known");
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

void Overview::tell_unseen(const Session &session, std::size_t count) const
{
    if (count > 0 && past_.problem.empty()) {
        session.notice(unseen_text(count));
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
