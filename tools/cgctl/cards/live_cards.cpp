// The cards and what happens to them, live from the store.
#include "cards/live_cards.h"
#include "records/position_key.h"

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "cards/overview.h"
#include "p_libpub.pb-c.h"

namespace cg
{

namespace
{

// The daemon reads its modules anew only when it connects to the store; requests in a burst need not all ask.
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
    : session_(session), events_(std::move(listener)), live_(session, store), complete_(std::move(complete)),
      past_(read_past(history_file)), probe_(store.loop(), session.socket, history_file,
                                             [this](const HealthReport &report) { handle_health(report); })
{
    std::vector<Position> requests;
    const RecordType &request = record_type("app_cg_card_check_info");
    for (const Json &record : store.scan(request, request.db)) {
        requests.push_back(position_in(record["index"]));
    }
    modules_asked_at_ = now();
    if (!past_.problem.empty()) {
        session.notice(visible(past_.problem) + ": what was before now is not known");
    }
    daemon_ = ask_daemon(session.socket);
    events_.set_told_reasons(reasons_in(daemon_));
    prime(events_.tracker(), daemon_, past_, requests, modules_asked_at_);
    handle_health({daemon_, {past_.alive_at, past_.problem}});
    for (const admission::TrackedType &tracked : admission::tracked_types()) {
        live_.subscribe(record_type(tracked.descriptor->name), tracked.db,
                        [this](const Change &change) { handle(change); });
    }
    live_.on_outage([this](const Live::Outage &outage) { handle_outage(outage); }, Live::Told::alone);
}

void LiveCards::handle_outage(const Live::Outage &outage)
{
    in_place_.lost(outage.db);
    if (outage.lost) {
        events_.store_lost(outage.db, now());
    } else {
        events_.store_returned(outage.db, outage.same_data, now());
    }
}

void LiveCards::handle(const Change &change)
{
    const Time at = now();
    if (change.cmd == VX_MOM_CMD_SUBSCRIBED) {
        if (in_place_.told(change.type.descriptor)) {
            events_.all_told(at);
            if (!std::exchange(completed_, true)) { // later ones are those after an outage
                complete_();
                notice_health();
            }
        }
    } else if (change.error_code != 0) {
        session_.notice(std::string("a record of ") + change.type.name() + " could not be read (result " +
                        std::to_string(change.error_code) + ")");
    } else {
        const bool asks = change.message->descriptor == &p_libpub__app_cg_card_check_info__descriptor;
        if (asks && !change.existing && change.cmd != VX_MOM_CMD_DELETED) {
            refresh_modules(at);
        }
        const bool existing = change.existing || !in_place_.is_complete(change.db);
        events_.take(*change.message, change.cmd == VX_MOM_CMD_DELETED,
                     {at, existing, {change.revision, change.origin}});
    }
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

// A request after a long time may come from a daemon that was started afresh, with other modules.
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
