// The cards and what happens to them, live from the store.
#include "cards/live_cards.h"

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "cards/overview.h"
#include "p_libpub.pb-c.h"
#include "records/databases.h"
#include "records/position_key.h"

namespace cg
{

namespace
{

// The daemon reads its modules again only when it connects to the store; requests in a burst need not all
// ask.
constexpr std::chrono::seconds modules_are_good_for{10};

Time now()
{
    return std::chrono::system_clock::now();
}

std::map<Position, std::string> reasons_in(const DaemonView &daemon)
{
    std::map<Position, std::string> reasons;
    for (const auto &[position, card] : daemon.cards) {
        reasons.emplace(position, card.reason);
    }
    return reasons;
}

} // namespace

LiveCards::LiveCards(const Session &session, Store &store, const std::string &history_file,
                     CardEvents::Listener listener, std::function<void()> complete)
    : session_(session), events_(std::move(listener)),
      follower_(store.client(), {.changed = [this](const auto &record, bool deleted,
                                                   const auto &change) { handle(record, deleted, change); },
                                 .undecodable =
                                     [this](int32_t /*db*/, const auto &key, const auto &reason) {
                                         session_.notice("record " + key + " does not decode: " + reason);
                                     },
                                 .snapshot_done = [this](int32_t db) { finish_snapshot(db); },
                                 .outage = [this](const auto &event) { handle_outage(event); }}),
      complete_(std::move(complete)), past_(read_past(history_file)),
      probe_(store.loop(), session.socket, history_file,
             [this](const HealthReport &report) { handle_health(report); })
{
    connect(store);
    std::vector<Position> requests;
    for (const store::Record &record : store.scan(p_libpub__app_cg_card_check_info__descriptor)) {
        if (const auto position = position_of(*record.message)) {
            requests.push_back(*position);
        }
    }
    modules_asked_at_ = now();
    if (!past_.problem.empty()) {
        session.notice(visible(past_.problem) + ": earlier events are unavailable");
    }
    daemon_ = ask_daemon(session.socket);
    events_.set_daemons_reasons(reasons_in(daemon_));
    prime(events_.tracker(), daemon_, past_, requests, modules_asked_at_);
    handle_health({daemon_, {past_.alive_at, past_.problem}});
    follower_.start(false);
}

void LiveCards::connect(Store &store)
{
    store.connect(card_database);
    for (const int32_t db : admission::tracked_databases()) {
        if (!store.try_connect(db)) {
            const AwayServer &away = store.away().back();
            absent_.emplace(db, away.server);
            session_.notice(text_of(away) + "; what it has is missing here until it is back");
            events_.store_heard({db, false, false, text_of(away), away.server}, now());
        }
    }
}

void LiveCards::handle(const ProtobufCMessage &record, bool deleted, const admission::Change &change)
{
    const bool asks = record.descriptor == &p_libpub__app_cg_card_check_info__descriptor;
    if (asks && !change.existing && !deleted) {
        refresh_modules(change.at);
    }
    events_.handle(record, deleted, change);
}

void LiveCards::handle_outage(const store::ConnectionEvent &event)
{
    const bool connected = event.kind != store::ConnectionEvent::Kind::lost;
    events_.store_heard({event.database, connected, event.same_data, event.reason, event.server}, now());
    if (complete_ && connected) {
        absent_.erase(event.database);
    } else if (complete_ && event.database != card_database) {
        absent_.emplace(event.database, event.server); // nobody waits for it
        begin_to_listen();
    }
}

void LiveCards::finish_snapshot(int32_t db)
{
    if (complete_) {
        begin_to_listen();
        return;
    }
    events_.received(db, now()); // after an outage
    notice_arrival(db);
}

// A database that was absent is there.
void LiveCards::notice_arrival(int32_t db)
{
    if (const auto arrived = absent_.extract(db)) {
        events_.store_heard({db, true, true, "", arrived.mapped()}, now());
    }
}

// All at once, so that an event in one database is not printed before those that were there in another.
void LiveCards::begin_to_listen()
{
    const auto &all = admission::tracked_databases();
    const auto is_there = [this](int32_t db) { return follower_.in_place().is_complete(db); };
    if (!std::all_of(all.begin(), all.end(),
                     [&](int32_t db) { return is_there(db) || absent_.contains(db); })) {
        return;
    }
    for (const int32_t db : all) {
        if (is_there(db)) {
            events_.received(db, now());
        }
    }
    std::exchange(complete_, {})();
    for (const int32_t db : all) {
        if (is_there(db)) {
            notice_arrival(db);
        }
    }
    notice_health();
}

// As it was at the beginning; what changes from then on are events.
void LiveCards::notice_health() const
{
    if (daemon_.is_silent) {
        session_.notice(silence_text(daemon_));
    }
    if (Heartbeat{past_.alive_at}.is_old(now())) {
        session_.notice(recorder_away_text(past_, now()));
    }
}

// A daemon that we have no right to ask may be there or not.
void LiveCards::handle_health(const HealthReport &report)
{
    const Time at = now();
    if (report.daemon.is_silent || report.daemon.problem.empty()) {
        events_.daemon_heard(!report.daemon.is_silent, report.daemon.problem, at);
    }
    if (report.daemon.problem.empty()) {
        events_.tracker().set_modules(report.daemon.modules);
    }
    events_.heartbeat_read(report.recorder, at);
}

// A request after a long time may come from a restarted daemon, with other modules.
void LiveCards::refresh_modules(Time at)
{
    if (at - modules_asked_at_ < modules_are_good_for) {
        return;
    }
    modules_asked_at_ = at;
    const DaemonView daemon = ask_daemon(session_.socket);
    if (daemon.problem.empty()) {
        events_.tracker().set_modules(daemon.modules);
    }
}

} // namespace cg
