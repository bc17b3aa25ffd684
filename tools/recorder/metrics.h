// What the recorder publishes for Prometheus.
//
// Modules and stores are not trusted with labels: a name makes a series of its own only when the modules'
// folder has it, so only the folder's owner can make more of them; and a server when the settings name it.
#ifndef RECORDER_METRICS_H
#define RECORDER_METRICS_H

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "admission/card_tracker.h"
#include "history/history.h"

namespace prometheus
{
class Registry;
}

namespace recorder
{

class Metrics
{
public:
    Metrics();
    ~Metrics();
    Metrics(const Metrics &) = delete;
    Metrics &operator=(const Metrics &) = delete;

    // All of them in Prometheus' text form.
    [[nodiscard]] std::string page() const;

    // The modules that have a name in labels; their series begin at 0.
    void set_modules(const std::vector<std::string> &modules);
    // Counts a check that ended, with its answers.
    void count(const admission::Decision &decision);
    // Counts an answer that came when its check had ended.
    void count(const admission::Answer &answer);
    // Shows the cards by state. One whose denial stands counts as denied also when it went offline, as the
    // power-off makes it.
    void show(const std::vector<const admission::TrackedCard *> &cards);
    // Counts a start or an exit of the daemon.
    void count(const history::LifeEvent &event);
    // Where each database is that is followed, for labels; their series begin at 0.
    void set_servers(const std::map<int32_t, std::string> &servers);
    // Shows whether all changes in a database are received; not so at first.
    void show_store(int32_t db, bool connected);
    // Counts a loss of the connection to a database.
    void count_outage(int32_t db);
    // Shows whether the daemon itself has no connection to a database.
    void show_away(int32_t db, bool is_away);
    // Counts a time in which decisions may have been missed.
    void count_gap();
    // Shows when the last gap ended.
    void show_gap_end(admission::Time at);
    // Counts a failed attempt to write the history.
    void count_write_failure();
    // Shows how many modules the daemon has registered; before the first call that is not known.
    void show_registered(std::size_t modules);
    // Counts lines for the system log that the daemon dropped.
    void count_dropped_lines(uint64_t lines);
    // Counts records of its own log that the daemon dropped.
    void count_dropped_records(uint64_t records);
    // Shows how many descriptors the daemon has, of how many; 0 and 0 while it is far from that.
    void show_descriptors(uint64_t held, uint64_t limit);

private:
    struct Families;

    [[nodiscard]] std::string label_of(const std::string &module) const;
    [[nodiscard]] std::map<std::string, std::string> labels_of(int32_t db) const;

    std::unique_ptr<prometheus::Registry> registry_;
    std::unique_ptr<Families> families_;
    std::set<std::string> modules_;
    std::map<int32_t, std::string> servers_;
};

// Returns how a daemon ended, as a label: a number of 0 to 255, a signal's name, or "other".
std::string exit_label(const history::LifeEvent &event);

} // namespace recorder

#endif
