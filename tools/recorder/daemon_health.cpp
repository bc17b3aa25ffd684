// What the daemon publishes of its own health, for the metrics.
#include "daemon_health.h"

#include <utility>

#include "base/text.h"
#include "records/databases.h"

namespace recorder
{

namespace
{

constexpr std::chrono::milliseconds answer_limit{250};
constexpr const char *health_key = "@health";

uint64_t number_of(const store::Inspected &fields, const char *name)
{
    return static_cast<uint64_t>(cg::to_number(fields.value_of(name).text, 0, INT64_MAX).value_or(0));
}

// From what was counted to what is to be; one that fell is no news.
uint64_t increase(uint64_t &counted, uint64_t now)
{
    return now > counted ? now - std::exchange(counted, now) : 0;
}

} // namespace

DaemonHealth::DaemonHealth(Metrics &metrics, Log log) : metrics_(metrics), log_(std::move(log)) {}

// That the store does not answer is reported by who follows it.
void DaemonHealth::look()
{
    if (!store_ || !store_->is_open()) {
        store_.emplace(cg::card_database, answer_limit);
    }
    const std::optional<store::Inspected> fields = store_->ask({"HGETALL", health_key}, answer_limit);
    if (!fields) {
        store_.reset();
        return;
    }
    report(fields->is_error() ? fields->text : "");
    if (!fields->is_error()) {
        show(*fields);
    }
}

// The daemon counts from its start; another instance is another count. Data that was lost with a server comes
// back with the same one.
void DaemonHealth::show(const store::Inspected &fields)
{
    const std::string &daemon = fields.value_of("instance").text;
    if (!daemon.empty() && daemon != daemon_) {
        daemon_ = daemon;
        system_log_lines_ = 0;
        log_records_ = 0;
    }
    metrics_.count_dropped_lines(increase(system_log_lines_, number_of(fields, "system_log_dropped")));
    metrics_.count_dropped_records(increase(log_records_, number_of(fields, "log_dropped")));
    metrics_.show_descriptors(number_of(fields, "descriptors"), number_of(fields, "descriptors_limit"));
    for (const int32_t db : {cg::result_database, cg::device_database}) {
        metrics_.show_away(db, number_of(fields, ("away_" + std::to_string(db)).c_str()) != 0);
    }
}

void DaemonHealth::report(const std::string &problem)
{
    if (std::exchange(problem_, problem) != problem && !problem.empty()) {
        log_("the daemon's health cannot be read, key @health of database 1: " + cg::visible(problem));
    }
}

} // namespace recorder
