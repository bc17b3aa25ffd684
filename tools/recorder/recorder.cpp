// The recorder: what the store delivers goes through the tracker into the history and the metrics.
#include "recorder.h"

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "records/databases.h"

namespace recorder
{

namespace
{

constexpr std::chrono::seconds heartbeat_interval{10};
constexpr const char *store_away = "the store was away";

// What the service log held when the recorder started may be in the file already, and is not counted.
Outbox::Write first_lines(std::vector<ServiceLine> lines)
{
    return [lines = std::move(lines)](history::Writer &writer) {
        for (const ServiceLine &line : lines_behind(writer.life_note(), lines)) {
            writer.add_life(line.event, line.text);
        }
    };
}

Outbox::Write next_line(ServiceLine line)
{
    return [line = std::move(line)](history::Writer &writer) { writer.add_life(line.event, line.text); };
}

} // namespace

Recorder::Recorder(Settings settings, Metrics &metrics, Log log, Time now)
    : settings_(std::move(settings)), metrics_(metrics), log_(std::move(log)),
      outbox_(settings_.history, now, log_, [this] { metrics_.count_write_failure(); }),
      tracker_([this](const admission::Decision &decision) { record(decision); }, settings_.silence_after),
      service_log_(settings_.service_log), modules_(settings_.modules, log_),
      open_checks_([this](Outbox::Write wanted) { write(std::move(wanted)); }),
      gaps_(metrics_, [this](Outbox::Write wanted) { write(std::move(wanted)); }), started_(now), now_(now)
{
    tracker_.on_daemon([this](const std::string &instance, bool started) { hear_daemon(instance, started); });
    tracker_.on_answer([this](const history::Position &position, const history::Answer &answer, bool late) {
        if (late) {
            record_late(position, answer);
        }
    });
    outbox_.on_loss([this] { gaps_.count(now_); });
    read_service_log();
    modules_.read();
    use_modules();
    outbox_.on_open([this](history::Writer &writer, const std::optional<history::Gap> &displaced) {
        opened(writer, displaced);
    });
    if (outbox_.is_open()) {
        tick(now);
    }
}

void Recorder::handle(const ProtobufCMessage &record, bool deleted, const admission::Change &change)
{
    now_ = change.at;
    admission::feed(tracker_, record, deleted, change);
    if (modules_.list() && !tracker_.knows_modules()) {
        modules_.report_contradiction();
    }
}

void Recorder::could_not_read(int32_t db, const std::string &key, const std::string &reason, Time now)
{
    now_ = now;
    const bool is_of_decisions = db == cg::card_database;
    log_("cannot decode the record " + key + ": " + reason +
         (is_of_decisions ? "; a decision may be missing" : ""));
    if (is_of_decisions) {
        gaps_.add(now, now, "a record could not be read");
    }
}

void Recorder::store_lost(int32_t db, Time now)
{
    now_ = now;
    metrics_.show_store(db, false);
    metrics_.count_outage(db);
    if (db == cg::card_database) {
        gaps_.begin_with_loss(now);
    }
}

// The daemon reads the modules' folder when it starts and when its store returns.
void Recorder::store_returned(Time now)
{
    now_ = now;
    modules_.read();
    use_modules();
}

void Recorder::snapshot_done(int32_t db, Time now)
{
    now_ = now;
    metrics_.show_store(db, true);
    if (db != cg::card_database) {
        return;
    }
    tracker_.snapshot_done(now);
    if (!listening_since_) {
        listening_since_ = now;
    }
    gaps_.end(now);
}

bool Recorder::tick(Time now)
{
    now_ = now;
    read_service_log();
    if (resumed_ && !listening_since_ && now > started_) {
        gaps_.begin(started_, store_away); // a new file has no gap that lasts
    }
    outbox_.flush(now);
    flush(now);
    // A heartbeat says that everything before it is in the file.
    if (!outbox_.is_open() || outbox_.waiting() > 0) {
        return false;
    }
    send_heartbeat();
    bool more = false;
    outbox_.attempt([&](history::Writer &writer) { more = writer.trim(settings_.limits, now); }, now);
    return more;
}

void Recorder::send_heartbeat()
{
    if (!last_heartbeat_ || now_ - *last_heartbeat_ >= heartbeat_interval || now_ < *last_heartbeat_) {
        last_heartbeat_ = now_;
        outbox_.attempt([at = gaps_.complete_until(now_)](history::Writer &writer) { writer.alive(at); },
                        now_);
    }
}

void Recorder::flush(Time now)
{
    now_ = now;
    if (listening_since_) { // before, it is not known which of the remembered checks still stand
        open_checks_.update(tracker_.cards());
        metrics_.show(tracker_.cards());
    }
}

// A gap that still lasts is left open: the next start ends it.
void Recorder::end(Time now)
{
    flush(now);
    write([at = gaps_.complete_until(now)](history::Writer &writer) { writer.alive(at); });
    outbox_.flush(now);
    if (outbox_.waiting() > 0) {
        log_(std::to_string(outbox_.waiting()) + " changes could not be written and are lost");
    }
}

void Recorder::record(const admission::Decision &decision)
{
    metrics_.count(decision);
    learn_registry(decision.outcome);
    const auto kept = std::make_shared<history::Decision>(decision);
    if (!resumed_) {
        early_.add(kept);
    }
    write([kept](history::Writer &writer) { writer.add(*kept); });
}

void Recorder::record_late(const history::Position &position, const history::Answer &answer)
{
    metrics_.count(answer);
    write([=](history::Writer &writer) { writer.add_late_answer(position, answer); });
}

void Recorder::hear_daemon(const std::string &instance, bool started)
{
    if (std::exchange(daemon_, instance) != instance) {
        asks_nobody_ = false;
        modules_.read_for(instance, started);
        use_modules();
    }
}

void Recorder::use_modules()
{
    const std::optional<history::Modules> &list = modules_.list();
    if (list && used_modules_ != list) {
        used_modules_ = list;
        metrics_.set_modules(list->names);
        tracker_.set_modules(list->names, !list->daemon.empty());
    }
    if (resumed_ && modules_.was_read() && noted_modules_ != list) {
        noted_modules_ = list;
        write([noted = *list](history::Writer &writer) { writer.set_modules_note(noted); });
    }
    show_registry();
}

// A daemon that could not read its folder registers nothing, whatever the recorder finds there. Only what it
// does with a card shows that.
void Recorder::learn_registry(admission::Outcome outcome)
{
    using admission::Outcome;
    if (outcome == Outcome::unasked) {
        asks_nobody_ = true;
    } else if (outcome == Outcome::passed || outcome == Outcome::denied || outcome == Outcome::silence) {
        asks_nobody_ = false;
    }
    show_registry();
}

void Recorder::show_registry()
{
    if (!modules_.list() && !asks_nobody_) {
        return; // nothing is known
    }
    const std::vector<std::string> names =
        modules_.list() ? modules_.list()->names : std::vector<std::string>();
    if (!names.empty()) {
        registered_before_ = names;
    }
    metrics_.show_registered(asks_nobody_ ? 0 : names.size());
    const bool is_lost = (asks_nobody_ || names.empty()) && !registered_before_.empty();
    if (!std::exchange(registry_is_lost_, is_lost) && is_lost) {
        log_("no module is registered any more, and every card is admitted unchecked; before: " +
             cg::visible(cg::joined(registered_before_)) + "; run `cgctl doctor`");
    }
}

void Recorder::read_service_log()
{
    const std::vector<ServiceLine> lines = service_log_.poll();
    if (service_log_.met_overlong_line() && !std::exchange(reported_overlong_line_, true)) {
        log_("the service log " + settings_.service_log +
             " has an overlong line, which is skipped; only the gate's service may write there");
    }
    if (!std::exchange(has_read_service_log_, true)) {
        write(first_lines(lines));
        return;
    }
    for (const ServiceLine &line : lines) {
        metrics_.count(line.event);
        write(next_line(line));
    }
}

// What the recorder resumes from its file when that is open: at its start, or later where it could not be
// opened then. Meanwhile it has listened. So the tracker is given the past as something older than all that
// it knows, and what is to be written of it goes before what waits.
void Recorder::opened(history::Writer &writer, const std::optional<history::Gap> &displaced)
{
    resumed_ ? opened_again(writer, displaced) : resume(writer);
}

// A damaged file was moved aside, or the former one is not at the path any more. The one in its place is new,
// or an older history: it knows neither what stands, nor what was last in the service log, nor which modules
// are registered; and what it has as open may have ended since.
void Recorder::opened_again(const history::Writer &writer, const std::optional<history::Gap> &displaced)
{
    for (const history::OpenCheck &check : writer.open_checks()) {
        end_unless_it_stands(check);
    }
    service_log_ = ServiceLog(settings_.service_log);
    has_read_service_log_ = false;
    read_service_log();
    if (noted_modules_) {
        write([before = registered_before_, noted = *noted_modules_](history::Writer &next) {
            next.set_modules_note({before, ""});
            next.set_modules_note(noted);
        });
    }
    gaps_.write_again();
    open_checks_.forget();
    last_heartbeat_.reset();
    if (displaced) {
        const Time from = std::min(displaced->from, writer.last_alive().value_or(displaced->from));
        gaps_.add(from, displaced->until.value_or(now_), displaced->why);
    }
}

// The tracker knows more of the check than the file, if it knows it.
void Recorder::end_unless_it_stands(const history::OpenCheck &check)
{
    const admission::TrackedCard *card = tracker_.find(check.card.position);
    if (card != nullptr && card->open && is_same(card->asked, check.request)) {
        return;
    }
    history::Decision end;
    if (card != nullptr && card->last && is_same(card->last->request, check.request)) {
        end = *card->last;
    } else {
        end.card = check.card;
        end.requested_at = check.requested_at;
        end.decided_at = now_;
        end.answers = check.answers;
        end.complete = false;
        end.request = check.request;
    }
    write([end](history::Writer &next) { next.add(end); });
}

// Everything is read before anything is changed: what cannot be read now is read at the next attempt.
void Recorder::resume(const history::Writer &writer)
{
    const std::vector<history::Decision> decisions = writer.last_decisions();
    const std::vector<history::OpenCheck> checks = writer.open_checks();
    const std::optional<Time> alive_at = writer.last_alive();
    const std::optional<Time> gap_end = writer.last_gap_end();
    const std::optional<history::Modules> modules = writer.modules_note();
    const std::vector<std::string> before = writer.registered_before();
    resumed_ = true;
    if (registered_before_.empty()) {
        registered_before_ = before;
    }
    if (modules) {
        modules_.adopt(*modules, daemon_);
    }
    use_modules();
    if (gap_end) {
        gaps_.show(*gap_end);
    }
    for (const history::Decision &decision : decisions) {
        tracker_.remember_decision(decision);
    }
    for (const history::OpenCheck &check : checks) {
        if (!early_.complete(check)) {
            tracker_.take_up(check, now_);
        }
    }
    early_.clear();
    if (alive_at) {
        resume_gap(*alive_at);
    }
}

// From the file's last heartbeat until the recorder listened, whenever the file was opened.
void Recorder::resume_gap(Time alive_at)
{
    constexpr const char *why = "the recorder was not running";
    const std::optional<Time> until =
        gaps_.lasting_since() && !listening_since_ ? gaps_.lasting_since() : listening_since_;
    if (until) {
        gaps_.add(alive_at, *until, why);
    } else {
        gaps_.begin(alive_at, why);
    }
}

} // namespace recorder
