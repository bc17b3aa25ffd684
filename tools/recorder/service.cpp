// The recorder on the event loop: subscriptions, timers, metrics over HTTP.
//
// It is "ready" when the loop runs, with the store or without: a recorder that waits for its store has not
// failed. The watchdog is fed by the same loop.
#include "service.h"

#include <algorithm>
#include <cstdlib>
#include <map>
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
#include "records/databases.h"
#include "store/connection/configuration.h"

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
    void handle_snapshot(int32_t db);
    void handle_outage(const store::ConnectionEvent &event);
    void note_contact();
    [[nodiscard]] std::set<int32_t> absent() const;
    [[nodiscard]] std::map<std::string, std::set<int32_t>>
    by_server(const std::set<int32_t> &databases) const;
    [[nodiscard]] std::string which(const std::set<int32_t> &databases) const;
    void report_absence();
    void report_absence(const std::set<int32_t> &databases);
    void report_overdue();
    void report_overdue(int32_t db);
    void flush_soon();
    void tick();

    const cg::Output &output_;
    const std::map<int32_t, std::string> servers_; // by database
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
    std::map<int32_t, history::Time> heard_until_;
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

std::map<int32_t, std::string> configured_servers()
{
    std::map<int32_t, std::string> servers;
    for (const int32_t db : admission::tracked_databases()) {
        servers[db] = cg::visible(store::configured_endpoint(db).value);
    }
    return servers;
}

Service::Service(const cg::Output &output, const Options &options)
    : output_(output), servers_(configured_servers()),
      recorder_(
          options.settings, metrics_, [&output](const std::string &text) { output.notice(text); }, now()),
      loop_(program), metrics_server_(expose(output, options, metrics_, loop_.context())),
      client_(loop_.context(), client_options(output, running_)),
      health_(metrics_, [&output](const std::string &text) { output.notice(text); }),
      follower_(client_, listener())
{
    metrics_.set_servers(servers_);
    follower_.start(false);
    tick_ = loop_.after(tick_interval, [this] { tick(); });
}

admission::Follower::Listener Service::listener()
{
    return {[this](const ProtobufCMessage &record, bool deleted, const admission::Change &change) {
                recorder_.handle(record, deleted, change);
                flush_soon();
            },
            [this](int32_t db, const std::string &key, const std::string &reason) {
                recorder_.could_not_read(db, key, reason, now());
            },
            [this](int32_t db) { handle_snapshot(db); },
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

// What is missing of a server is reported by its absence.
void Service::handle_snapshot(int32_t db)
{
    reported_absent_.erase(db);
    recorder_.snapshot_done(db, now());
    const auto servers = by_server(admission::tracked_databases());
    const std::set<int32_t> &there = servers.at(servers_.at(db));
    if (!std::all_of(there.begin(), there.end(),
                     [this](int32_t each) { return follower_.in_place().is_complete(each); })) {
        return;
    }
    if (there.contains(cg::card_database)) {
        output_.notice("subscribed; following " + std::to_string(recorder_.tracker().cards().size()) +
                       " positions" + (servers.size() > 1 ? ", database" + which(there) : ""));
    } else {
        output_.notice("subscribed to database" + which(there));
    }
}

void Service::handle_outage(const store::ConnectionEvent &event)
{
    output_.notice(admission::text_of(event));
    if (event.kind == store::ConnectionEvent::Kind::lost) {
        note_contact();
        away_.insert(event.database);
        recorder_.store_lost(event.database, now());
    } else {
        away_.erase(event.database);
        recorder_.store_returned(now());
    }
}

// A database that is not complete is lost, or has delivered nothing yet.
void Service::note_contact()
{
    const auto steady = std::chrono::steady_clock::now();
    for (const int32_t db : admission::tracked_databases()) {
        if (!follower_.in_place().is_complete(db)) {
            continue;
        }
        const auto contact = client_.last_contact(db).value_or(steady);
        heard_until_[db] = now() - std::chrono::duration_cast<milliseconds>(steady - contact);
        if (db == cg::card_database) {
            recorder_.heard(heard_until_[db]);
        }
    }
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

std::map<std::string, std::set<int32_t>> Service::by_server(const std::set<int32_t> &databases) const
{
    std::map<std::string, std::set<int32_t>> servers;
    for (const int32_t db : databases) {
        servers[servers_.at(db)].insert(db);
    }
    return servers;
}

// " 33", "s 1 and 33", of one server; where there are several " 33 at ENDPOINT".
std::string Service::which(const std::set<int32_t> &databases) const
{
    std::string text = databases.size() > 1 ? "s " : " ";
    for (const int32_t db : databases) {
        text += (db == *databases.begin() ? "" : " and ") + std::to_string(db);
    }
    return text + (by_server(admission::tracked_databases()).size() > 1
                       ? " at " + servers_.at(*databases.begin())
                       : "");
}

// One line for each server.
void Service::report_absence()
{
    const std::set<int32_t> databases = absent();
    const std::set<int32_t> reported = std::exchange(reported_absent_, databases);
    for (const auto &[server, of_it] : by_server(databases)) {
        if (!std::includes(reported.begin(), reported.end(), of_it.begin(), of_it.end())) {
            report_absence(of_it);
        }
    }
}

void Service::report_absence(const std::set<int32_t> &databases)
{
    const auto heard = heard_until_.find(*databases.begin());
    if (heard != heard_until_.end()) {
        output_.notice("the store has not answered since " + cg::clock_text(heard->second, now()) +
                       ", database" + which(databases) + "; reconnecting");
    } else {
        output_.notice("the store does not answer yet, database" + which(databases) + "; reconnecting");
    }
}

void Service::report_overdue()
{
    const std::set<int32_t> away = absent();
    for (const int32_t db : admission::tracked_databases()) {
        if (!away.contains(db)) {
            report_overdue(db);
        }
    }
}

// A type of database 1 whose records are never delivered keeps all decisions from being recorded.
void Service::report_overdue(int32_t db)
{
    std::string names;
    for (const ProtobufCMessageDescriptor *type : follower_.in_place().overdue(db, now())) {
        names += std::string(" ") + type->name;
    }
    if (names.empty()) {
        return;
    }
    if (db != cg::card_database) {
        output_.notice("the store does not deliver all records of database" + which({db}) + ':' + names);
        return;
    }
    output_.notice("the store does not deliver all its records, and no decision is recorded until it does:" +
                   names);
}

void Service::tick()
{
    note_contact();
    report_absence();
    report_overdue();
    if (!absent().contains(cg::card_database)) {
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
