// What the daemon publishes of its own health, for the metrics.
//
// It is a hash of the store and no record, and there is none while all is well. So it is asked for, on a
// plain connection with a short limit: a subscription has nothing to deliver it, and the store client's calls
// ride out an outage, which would hold up the recorder.
#ifndef RECORDER_DAEMON_HEALTH_H
#define RECORDER_DAEMON_HEALTH_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "metrics.h"
#include "store/inspect/inspection.h"

namespace recorder
{

class DaemonHealth
{
public:
    using Log = std::function<void(const std::string &)>;

    // `metrics` outlives this. `log` is given each line that an operator should know.
    DaemonHealth(Metrics &metrics, Log log);

    // Asks for it and shows it. For every few seconds while the store answers: when it does not, this waits
    // for a quarter of a second, and what was shown last stays.
    void look();

private:
    void show(const store::Inspected &fields);
    void report(const std::string &problem);

    Metrics &metrics_;
    Log log_;
    std::optional<store::Inspection> store_;
    std::string daemon_{};          // the instance whose losses were counted last
    uint64_t system_log_lines_ = 0; // so many of them
    uint64_t log_records_ = 0;
    std::string problem_{}; // as reported
};

} // namespace recorder

#endif
