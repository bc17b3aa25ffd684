// The recorder on the event loop: subscriptions, timers, metrics over HTTP.
//
// "Ready" is said when the loop turns, with the store or without: a recorder that waits for its store is no
// failed one. The watchdog hangs on the same loop.
#include "service.h"

#include <prometheus/exposer.h>

#include <algorithm>
#include <set>
#include <utility>

#include "access/live.h"
#include "admission/card_text.h"
#include "admission/feed.h"
#include "base/failure.h"
#include "process/service_notice.h"

namespace recorder
{

namespace
{

constexpr int64_t tick_ms = 2000;
constexpr int64_t busy_tick_ms = 100; // while there is something to clean up
constexpr int64_t settle_ms = 200;

history::Time now()
{
    return std::chrono::system_clock::now();
}

class Service
{
public:
    Service(const cg::Output &output, const Options &options);
    void run();

private:
    void take(const cg::Change &change);
    void take_subscribed(const cg::RecordType &type);
    void take_outage(int32_t db, bool lost);
    void hear();
    [[nodiscard]] std::set<int32_t> absent() const;
    void tell_of_absence();
    void tell_of_overdue();
    void settle_soon();
    void tick();

    const cg::Output &output_;
    Metrics metrics_;
    Recorder recorder_;
    std::unique_ptr<prometheus::Exposer> exposer_;
    cg::Store store_;
    cg::Live live_;
    admission::InPlace in_place_;
    bool settling_ = false;
    std::set<int32_t> told_absent_;        // databases that were told to be away
    std::set<int32_t> away_;               // databases that were lost
    std::optional<history::Time> since_{}; // when it was last heard before that
};

// Whoever wants the port has it: then nobody would hear of silences, so it is no small thing.
std::unique_ptr<prometheus::Exposer> expose(const cg::Output &output, const Options &options,
                                            Metrics &metrics)
{
    if (options.listen.empty()) {
        return nullptr;
    }
    std::unique_ptr<prometheus::Exposer> exposer;
    try {
        exposer = std::make_unique<prometheus::Exposer>(options.listen);
    } catch (const std::exception &) {
        throw cg::Failure(cg::failed, "metrics cannot be served at " + options.listen +
                                          "; choose a free port by --listen, or off");
    }
    exposer->RegisterCollectable(metrics.registry());
    output.notice("metrics are at http://" + options.listen.substr(0, options.listen.rfind(':')) + ':' +
                  std::to_string(exposer->GetListeningPorts().front()) + "/metrics");
    return exposer;
}

Service::Service(const cg::Output &output, const Options &options)
    : output_(output),
      recorder_(
          options.settings, metrics_, [&output](const std::string &text) { output.notice(text); }, now()),
      exposer_(expose(output, options, metrics_)), store_(output), live_(output, store_)
{
    live_.on_outage([this](const cg::Live::Outage &outage) { take_outage(outage.db, outage.lost); });
    for (const admission::TrackedType &type : admission::tracked_types()) {
        live_.subscribe(
            cg::record_type(type.descriptor->name), type.db,
            [this](const cg::Change &change) { take(change); }, cg::Live::Absent::awaited);
    }
    live_.after(tick_ms, [this] { tick(); });
}

void Service::run()
{
    output_.notice("recording into " + recorder_.path());
    if (platform::register_service() != 0) {
        throw cg::Failure(cg::failed, "the process manager at NOTIFY_SOCKET cannot be reached");
    }
    live_.run();
    recorder_.end(now());
    output_.notice("stopped");
}

void Service::take(const cg::Change &change)
{
    if (change.cmd == VX_MOM_CMD_SUBSCRIBED) {
        take_subscribed(change.type);
    } else if (change.error_code != 0) {
        recorder_.could_not_read(change.type.name(), "the store client names it", now());
    } else if (change.message != nullptr) {
        const bool existing = change.existing || !in_place_.is_complete(change.db);
        recorder_.handle(change.cmd, *change.message, {now(), existing, {}});
        settle_soon();
    }
}

void Service::take_subscribed(const cg::RecordType &type)
{
    if (in_place_.told(type.descriptor)) {
        output_.notice("subscribed; following " + std::to_string(recorder_.tracker().cards().size()) +
                       " positions");
        recorder_.snapshot_done(now());
    }
}

void Service::take_outage(int32_t db, bool lost)
{
    if (lost) {
        hear();
        in_place_.lost(db);
        away_.insert(db);
        recorder_.store_lost(now());
    } else {
        in_place_.lost(db);
        away_.erase(db);
        recorder_.store_returned(now());
    }
}

// Of two connections the one counts that was silent for longer.
void Service::hear()
{
    std::chrono::milliseconds silence{0};
    for (const admission::TrackedType &type : admission::tracked_types()) {
        if (!in_place_.is_complete(type.db)) {
            return; // a gap lasts, or nothing was told yet
        }
        silence = std::max(silence, live_.silent_for(type.db).value_or(std::chrono::milliseconds{0}));
    }
    since_ = now() - silence;
    recorder_.heard(*since_);
}

// Changes come in bursts, and the open checks are in the file a moment later all the same.
void Service::settle_soon()
{
    if (!settling_) {
        settling_ = true;
        live_.after(settle_ms, [this] {
            settling_ = false;
            recorder_.flush(now());
        });
    }
}

std::set<int32_t> Service::absent() const
{
    std::set<int32_t> databases = away_;
    for (const admission::TrackedType &type : admission::tracked_types()) {
        if (!since_ && !live_.silent_for(type.db)) {
            databases.insert(type.db);
        }
    }
    return databases;
}

void Service::tell_of_absence()
{
    const std::set<int32_t> databases = absent();
    if (std::exchange(told_absent_, databases) == databases || databases.empty()) {
        return;
    }
    std::string which = databases.size() > 1 ? "s " : " ";
    for (const int32_t db : databases) {
        which += (db == *databases.begin() ? "" : " and ") + std::to_string(db);
    }
    which += "; it is tried until it does";
    if (since_) {
        output_.notice("the store has not answered since " + cg::clock_text(*since_, now()) + ", database" +
                       which);
    } else {
        output_.notice("the store does not answer yet, database" + which);
    }
}

// A type that is never told keeps all decisions of its database from being heard.
void Service::tell_of_overdue()
{
    std::string names;
    for (const ProtobufCMessageDescriptor *type : in_place_.overdue(now())) {
        names += std::string(" ") + cg::record_type(type->name).name();
    }
    if (!names.empty()) {
        output_.notice(
            "the store does not deliver all its records, and no decision is recorded until it does:" + names);
    }
}

void Service::tick()
{
    hear();
    tell_of_absence();
    if (away_.empty()) {
        tell_of_overdue();
    }
    const bool more = recorder_.tick(now());
    live_.after(more ? busy_tick_ms : tick_ms, [this] { tick(); });
}

} // namespace

void serve(const cg::Output &output, const Options &options)
{
    Service(output, options).run();
}

} // namespace recorder
