// The recorder: what the store delivers goes through the tracker into the history and the metrics.
//
// It has no store, loop or clock of its own: the service hands them in, and so can tests.
#ifndef RECORDER_RECORDER_H
#define RECORDER_RECORDER_H

#include "admission/card_tracker.h"
#include "admission/feed.h"
#include "early_decisions.h"
#include "gaps.h"
#include "metrics.h"
#include "module_list.h"
#include "open_checks.h"
#include "outbox.h"
#include "service_log.h"

namespace recorder
{

struct Settings {
    std::string history{};     // the file to write
    std::string modules{};     // the folder that registers the check modules
    std::string service_log{}; // where the daemon's service unit notes starts and exits
    history::Limits limits{};
    std::chrono::milliseconds silence_after = cg::check_timeout;
};

class Recorder
{
public:
    using Time = history::Time;
    using Log = std::function<void(const std::string &)>;

    // Opens the history and resumes what was open in it. Throws history::Error when it cannot be opened,
    // unless that will pass: then it resumes when it can. `metrics` outlives this.
    Recorder(Settings settings, Metrics &metrics, Log log, Time now);

    // Handles a change, with the arguments of admission::feed(). The time is the change's.
    void handle(const ProtobufCMessage &record, bool deleted, const admission::Change &change);
    // The record with this key changed in a database, and does not decode, for this reason.
    void could_not_read(int32_t db, const std::string &key, const std::string &reason, Time now);
    // Every change in database 1 until then was delivered: so much is known of the store, and a gap begins
    // there.
    void heard(Time until) { gaps_.heard(until); }
    // A database's connection is lost.
    void store_lost(int32_t db, Time now);
    // A database's connection is back, and everything in it is about to be delivered again.
    void store_returned(Time now);
    // All existing records of a database were delivered. Decisions come from database 1 alone: with it the
    // recorder listens, and without it there is a gap.
    void snapshot_done(int32_t db, Time now);

    // To be called every few seconds. Returns whether there is more to do soon.
    bool tick(Time now);
    // To be called shortly after changes: writes what became of the open checks.
    void flush(Time now);
    // Writes what can be written by now; the rest is lost.
    void end(Time now);

    [[nodiscard]] const admission::CardTracker &tracker() const { return tracker_; }
    // Where the history is.
    [[nodiscard]] const std::string &path() const { return settings_.history; }

private:
    void opened(history::Writer &writer, const std::optional<history::Gap> &displaced);
    void opened_again(const history::Writer &writer, const std::optional<history::Gap> &displaced);
    void end_unless_it_stands(const history::OpenCheck &check);
    void resume(const history::Writer &writer);
    void resume_gap(Time alive_at);
    void write(Outbox::Write write) { outbox_.put(std::move(write), now_); }
    void record(const admission::Decision &decision);
    void record_late(const history::Position &position, const history::Answer &answer);
    void hear_daemon(const std::string &instance, bool started);
    void use_modules();
    void show_registry();
    void learn_registry(admission::Outcome outcome);
    void read_service_log();
    void send_heartbeat();

    Settings settings_;
    Metrics &metrics_;
    Log log_;
    Outbox outbox_;
    admission::CardTracker tracker_;
    ServiceLog service_log_;
    ModuleList modules_;
    OpenChecks open_checks_;
    Gaps gaps_;
    EarlyDecisions early_;
    std::optional<history::Modules> used_modules_;  // as tracker and metrics have them
    std::optional<history::Modules> noted_modules_; // as the file has them
    std::vector<std::string> registered_before_{};  // when there last were some modules
    bool asks_nobody_ = false;                      // the daemon, whatever is in the folder
    bool registry_is_lost_ = false;                 // as reported
    std::string daemon_{};                          // the instance that was heard of last
    bool reported_overlong_line_ = false;
    bool has_read_service_log_ = false;
    bool resumed_ = false; // what the file holds of the time before
    std::optional<Time> listening_since_;
    std::optional<Time> last_heartbeat_;
    Time started_{};
    Time now_{};
};

} // namespace recorder

#endif
