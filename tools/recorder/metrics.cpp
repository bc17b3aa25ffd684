// What the recorder publishes for Prometheus.
#include "metrics.h"

#include <prometheus/counter.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>
#include <prometheus/text_serializer.h>

#include <array>
#include <csignal>
#include <cstring>

#include "admission/words.h"
#include "base/text.h"

namespace recorder
{

namespace
{

using prometheus::Counter;
using prometheus::Family;
using prometheus::Gauge;
using prometheus::Histogram;
using prometheus::Registry;

constexpr const char *others = "other";
constexpr std::size_t longest_label = 60; // a module's name of 15 bytes, each of them as \xHH

const Histogram::BucketBoundaries &answer_buckets()
{
    static const Histogram::BucketBoundaries buckets{
        0.1, 0.3, 1, 3, 10, 30, 60, 120, 180, 240, std::chrono::duration<double>(cg::check_timeout).count()};
    return buckets;
}

Family<Counter> &counter(Registry &registry, const char *name, const char *what)
{
    const std::string help = std::string(what) + " since cg_recorderd started.";
    return prometheus::BuildCounter().Name(name).Help(help).Register(registry);
}

// Of the daemon, which counts for itself.
Counter &daemon_counter(Registry &registry, const char *name, const char *what)
{
    const std::string help = std::string(what) + ", since its start and through its restarts.";
    return prometheus::BuildCounter().Name(name).Help(help).Register(registry).Add({});
}

Family<Gauge> &gauge(Registry &registry, const char *name, const char *help)
{
    return prometheus::BuildGauge().Name(name).Help(help).Register(registry);
}

} // namespace

struct Metrics::Families {
    explicit Families(Registry &registry);

    Family<Counter> &decisions;
    Family<Counter> &silences;
    Counter &cards_by_silence;
    Gauge &waiting;
    Family<Gauge> &cards;
    Family<Histogram> &answers;
    Family<Gauge> &connected;
    Family<Counter> &outages;
    Counter &starts;
    Family<Counter> &exits;
    Counter &gaps;
    Gauge &gap_end;
    Counter &write_failures;
    Family<Gauge> &registered;
    Counter &dropped_lines;
    Counter &dropped_records;
    Gauge &descriptors;
    Gauge &descriptors_limit;
    Family<Gauge> &away;
};

Metrics::Families::Families(Registry &registry)
    : decisions(counter(registry, "cg_decisions_total",
                        "Checks that ended, by outcome and by the module whose answer decided,")),
      silences(counter(registry, "cg_admissions_by_silence_total",
                       "Cards admitted because the time was up, by each module that was silent,")),
      cards_by_silence(counter(registry, "cg_cards_admitted_by_silence_total",
                               "Cards admitted because the time was up, each counted once,")
                           .Add({})),
      waiting(gauge(registry, "cg_cards_waiting", "Cards that wait for an answer now.").Add({})),
      cards(gauge(registry, "cg_cards", "Cards by state now.")),
      answers(prometheus::BuildHistogram()
                  .Name("cg_module_answer_seconds")
                  .Help("Time from a request to a module's answer, of checks that ended since cg_recorderd "
                        "started.")
                  .Register(registry)),
      connected(gauge(registry, "cg_store_connected",
                      "1 while all changes in this database are received, else 0.")),
      outages(
          counter(registry, "cg_store_outages_total", "Losses of the connection to the store, by database,")),
      starts(counter(registry, "cg_daemon_starts_total", "Starts of the daemon's service").Add({})),
      exits(counter(
          registry, "cg_daemon_exits_total",
          "Exits of the daemon's service, by exit status or signal; 77 is its request to be started again,")),
      gaps(counter(registry, "cg_recorder_gaps_total", "Times in which decisions may have been missed")
               .Add({})),
      gap_end(
          gauge(registry, "cg_recorder_last_gap_end_seconds",
                "When the last time in which decisions may have been missed ended, in seconds since 1970; 0 "
                "when there is none.")
              .Add({})),
      write_failures(
          counter(registry, "cg_history_write_failures_total", "Attempts to write the history that failed")
              .Add({})),
      registered(
          gauge(registry, "cg_modules_registered",
                "Check modules that the daemon has registered; with 0 every card is admitted unchecked.")),
      dropped_lines(daemon_counter(registry, "cg_system_log_dropped_total",
                                   "Lines for the system log that the daemon dropped")),
      dropped_records(daemon_counter(registry, "cg_daemon_log_dropped_total",
                                     "Records of its own log that the daemon dropped")),
      descriptors(gauge(registry, "cg_daemon_descriptors",
                        "Descriptors that the daemon has, from three quarters of its limit on; else 0.")
                      .Add({})),
      descriptors_limit(gauge(registry, "cg_daemon_descriptors_limit",
                              "How many it can have, from three quarters of them on; else 0.")
                            .Add({})),
      away(gauge(registry, "cg_daemon_database_away",
                 "1 while the daemon has no connection to this database, which is on another server than "
                 "database 1; else 0."))
{
    gauge(registry, "cg_build_info", "1, with the recorder's version.")
        .Add({{"version", RECORDER_VERSION}})
        .Set(1);
    exits.Add({{"status", "77"}}); // alarms are made of its first increase
}

Metrics::Metrics()
    : registry_(std::make_unique<Registry>()), families_(std::make_unique<Families>(*registry_))
{
}

Metrics::~Metrics() = default;

std::string Metrics::page() const
{
    return prometheus::TextSerializer().Serialize(registry_->Collect());
}

void Metrics::set_modules(const std::vector<std::string> &modules)
{
    modules_ = {modules.begin(), modules.end()};
    for (const std::string &module : modules) {
        families_->silences.Add({{"module", label_of(module)}});
        families_->answers.Add({{"module", label_of(module)}}, answer_buckets());
    }
}

std::string Metrics::label_of(const std::string &module) const
{
    return modules_.contains(module) ? cg::visible(module, longest_label) : others;
}

void Metrics::count(const admission::Decision &decision)
{
    const std::string decider = decision.decider.empty() ? "" : label_of(decision.decider);
    families_->decisions.Add({{"outcome", admission::word_of(decision.outcome)}, {"decider", decider}})
        .Increment();
    if (decision.outcome == admission::Outcome::silence) {
        families_->cards_by_silence.Increment();
        for (const std::string &module : decision.silent) {
            families_->silences.Add({{"module", label_of(module)}}).Increment();
        }
    }
    for (std::size_t i = decision.told_before; i < decision.answers.size(); ++i) {
        count(decision.answers[i]);
    }
}

void Metrics::count(const admission::Answer &answer)
{
    if (answer.took) {
        families_->answers.Add({{"module", label_of(answer.module)}}, answer_buckets())
            .Observe(std::chrono::duration<double>(*answer.took).count());
    }
}

void Metrics::set_servers(const std::map<int32_t, std::string> &servers)
{
    servers_ = servers;
    for (const auto &[db, server] : servers) {
        families_->connected.Add(labels_of(db));
        families_->outages.Add(labels_of(db));
    }
}

std::map<std::string, std::string> Metrics::labels_of(int32_t db) const
{
    const auto found = servers_.find(db);
    return {{"database", std::to_string(db)}, {"server", found == servers_.end() ? "" : found->second}};
}

void Metrics::show_store(int32_t db, bool connected)
{
    families_->connected.Add(labels_of(db)).Set(connected ? 1 : 0);
}

void Metrics::show(const std::vector<const admission::TrackedCard *> &cards)
{
    std::vector<int> numbers(admission::all_states().size());
    for (const admission::TrackedCard *card : cards) {
        const admission::State state = card->denied ? admission::State::denied : card->state;
        ++numbers.at(static_cast<std::size_t>(state));
    }
    for (const admission::State state : admission::all_states()) {
        if (state != admission::State::absent) {
            families_->cards.Add({{"state", admission::word_of(state)}})
                .Set(numbers.at(static_cast<std::size_t>(state)));
        }
    }
    families_->waiting.Set(numbers.at(static_cast<std::size_t>(admission::State::waiting)));
}

void Metrics::count(const history::LifeEvent &event)
{
    if (event.is_start) {
        families_->starts.Increment();
    } else {
        families_->exits.Add({{"status", exit_label(event)}}).Increment();
    }
}

void Metrics::count_outage(int32_t db)
{
    families_->outages.Add(labels_of(db)).Increment();
}

void Metrics::show_away(int32_t db, bool is_away)
{
    families_->away.Add({{"database", std::to_string(db)}}).Set(is_away ? 1 : 0);
}

void Metrics::count_gap()
{
    families_->gaps.Increment();
}

void Metrics::show_gap_end(admission::Time at)
{
    families_->gap_end.Set(std::chrono::duration<double>(at.time_since_epoch()).count());
}

void Metrics::count_write_failure()
{
    families_->write_failures.Increment();
}

void Metrics::show_registered(std::size_t modules)
{
    families_->registered.Add({}).Set(static_cast<double>(modules));
}

void Metrics::count_dropped_lines(uint64_t lines)
{
    families_->dropped_lines.Increment(static_cast<double>(lines));
}

void Metrics::count_dropped_records(uint64_t records)
{
    families_->dropped_records.Increment(static_cast<double>(records));
}

void Metrics::show_descriptors(uint64_t held, uint64_t limit)
{
    families_->descriptors.Set(static_cast<double>(held));
    families_->descriptors_limit.Set(static_cast<double>(limit));
}

std::string exit_label(const history::LifeEvent &event)
{
    constexpr int64_t most = 255;
    if (event.code == "exited") {
        const auto status = cg::to_number(event.status, 0, most);
        return status ? std::to_string(*status) : others;
    }
    for (int number = 1; number < NSIG; ++number) {
        const char *name = sigabbrev_np(number);
        if (name != nullptr && event.status == name) {
            return event.status;
        }
    }
    return others;
}

} // namespace recorder
