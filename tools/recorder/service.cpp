// The recorder on the event loop: subscriptions, timers, metrics over HTTP.
//
// It is "ready" when the loop runs, with the store or without: a recorder that waits for its store has not
// failed. The watchdog is fed by the same loop.
#include "service.h"

#include <algorithm>
#include <cstdlib>
#include <set>
#include <utility>

#include "admission/follower.h"
#include "base/failure.h"
#include "base/text.h"
#include "daemon_health.h"
#include "log/platform_log.h"
#include "loop/loop.h"
#include "metrics_server.h"
#include "process/service_notice.h"

namespace recorder
{

namespace
{

using std::chrono::milliseconds;

constexpr milliseconds tick_interval{2000};
constexpr milliseconds busy_tick_interval{100}; // while there is something to clean up
constexpr milliseconds flush_delay{200};
constexpr const char *program = "cg_recorderd";

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
    admission::Follower::Listener listener();
    void handle_snapshot();
    void handle_outage(const store::ConnectionEvent &event);
    void note_contact();
    [[nodiscard]] std::set<int32_t> absent() const;
    void report_absence();
    void report_overdue();
    void flush_soon();
    void tick();

    const cg::Output &output_;
    Metrics metrics_;
    Recorder recorder_;
    bool running_ = false;
    platform::Loop loop_;
    std::unique_ptr<MetricsServer> metrics_server_;
    store::Client client_;
    DaemonHealth health_;
    platform::Timer tick_;
    platform::Timer flush_;
    admission::Follower follower_;
    std::set<int32_t> reported_absent_; // databases
    std::set<int32_t> away_;            // databases that were lost
    std::optional<history::Time> heard_until_{};
};

// A taken port is fatal: without metrics nobody is alerted to admissions by silence.
std::unique_ptr<MetricsServer> expose(const cg::Output &output, const Options &options,
                                      const Metrics &metrics, vx_global_t *context)
{
    if (options.listen.empty()) {
        return nullptr;
    }
    std::unique_ptr<MetricsServer> server;
    try {
        server = std::make_unique<MetricsServer>(
            context, options.listen, [&metrics] { return metrics.page(); }, MetricsServer::Limits());
    } catch (const std::exception &error) {
        throw cg::Failure(cg::failed, "metrics cannot be served at " + options.listen + ": " +
                                          cg::visible(error.what()) +
                                          "; choose an address and a free port by --listen, or off");
    }
    output.notice("metrics are at http://" + options.listen.substr(0, options.listen.rfind(':')) + ':' +
                  std::to_string(server->port()) + "/metrics");
    return server;
}

// What the store client reports goes to the operator. Before the loop runs it reports only why a call fails,
// which the failure says.
store::Options client_options(const cg::Output &output, const bool &running)
{
    store::Options options;
    options.notice = [&output, &running](int32_t level, const std::string &text) {
        if (running && level >= platform::log_warn) {
            output.notice(cg::visible(text));
        }
    };
    return options;
}

Service::Service(const cg::Output &output, const Options &options)
    : output_(output),
      recorder_(
          options.settings, metrics_, [&output](const std::string &text) { output.notice(text); }, now()),
      loop_(program), metrics_server_(expose(output, options, metrics_, loop_.context())),
      client_(loop_.context(), client_options(output, running_)),
      health_(metrics_, [&output](const std::string &text) { output.notice(text); }),
      follower_(client_, listener())
{
    follower_.start(false);
    tick_ = loop_.after(tick_interval, [this] { tick(); });
}

admission::Follower::Listener Service::listener()
{
    return {[this](const ProtobufCMessage &record, bool deleted, const admission::Change &change) {
                recorder_.handle(record, deleted, change);
                flush_soon();
            },
            [this](const std::string &key, const std::string &reason) {
                recorder_.could_not_read(key, reason, now());
            },
            [this](int32_t /*db*/) { handle_snapshot(); },
            [this](const store::ConnectionEvent &event) { handle_outage(event); }};
}

void Service::run()
{
    output_.notice("recording into " + recorder_.path());
    if (platform::register_service() != 0) {
        throw cg::Failure(cg::failed, "the process manager at NOTIFY_SOCKET cannot be reached");
    }
    running_ = true;
    loop_.run();
    recorder_.end(now());
    output_.notice("stopped");
}

void Service::handle_snapshot()
{
    if (!follower_.in_place().is_complete()) {
        return;
    }
    reported_absent_.clear();
    output_.notice("subscribed; following " + std::to_string(recorder_.tracker().cards().size()) +
                   " positions");
    recorder_.snapshot_done(now());
}

void Service::handle_outage(const store::ConnectionEvent &event)
{
    output_.notice(admission::text_of(event));
    if (event.kind == store::ConnectionEvent::Kind::lost) {
        note_contact();
        away_.insert(event.database);
        recorder_.store_lost(now());
    } else {
        away_.erase(event.database);
        recorder_.store_returned(now());
    }
}

// Of two connections the one counts that was silent for longer.
void Service::note_contact()
{
    const auto steady = std::chrono::steady_clock::now();
    auto contact = steady;
    for (const int32_t db : admission::tracked_databases()) {
        if (!follower_.in_place().is_complete(db)) {
            return; // a gap lasts, or nothing was delivered yet
        }
        contact = std::min(contact, client_.last_contact(db).value_or(steady));
    }
    heard_until_ = now() - std::chrono::duration_cast<milliseconds>(steady - contact);
    recorder_.heard(*heard_until_);
}

// Changes come in bursts, and a moment later the open checks are in the file all the same.
void Service::flush_soon()
{
    if (!flush_.is_armed()) {
        flush_ = loop_.after(flush_delay, [this] { recorder_.flush(now()); });
    }
}

std::set<int32_t> Service::absent() const
{
    std::set<int32_t> databases = away_;
    for (const int32_t db : admission::tracked_databases()) {
        if (!client_.last_contact(db)) {
            databases.insert(db);
        }
    }
    return databases;
}

void Service::report_absence()
{
    const std::set<int32_t> databases = absent();
    if (std::exchange(reported_absent_, databases) == databases || databases.empty()) {
        return;
    }
    std::string which = databases.size() > 1 ? "s " : " ";
    for (const int32_t db : databases) {
        which += (db == *databases.begin() ? "" : " and ") + std::to_string(db);
    }
    which += "; reconnecting";
    if (heard_until_) {
        output_.notice("the store has not answered since " + cg::clock_text(*heard_until_, now()) +
                       ", database" + which);
    } else {
        output_.notice("the store does not answer yet, database" + which);
    }
}

// A type whose records are never delivered keeps all decisions of its database from being recorded.
void Service::report_overdue()
{
    std::string names;
    for (const ProtobufCMessageDescriptor *type : follower_.in_place().overdue(now(), absent())) {
        names += std::string(" ") + type->name;
    }
    if (!names.empty()) {
        output_.notice(
            "the store does not deliver all its records, and no decision is recorded until it does:" + names);
    }
}

void Service::tick()
{
    note_contact();
    report_absence();
    report_overdue();
    if (absent().empty()) {
        health_.look();
    }
    const bool more = recorder_.tick(now());
    tick_ = loop_.after(more ? busy_tick_interval : tick_interval, [this] { tick(); });
}

} // namespace

void serve(const cg::Output &output, const Options &options)
{
    // Nothing may go to the daemon's log file, which the same setting may name: two processes cannot rotate
    // one file.
    setenv("VX_ZLOG", "none", 1);
    Service(output, options).run();
}

} // namespace recorder
