// How the modules answer, from what was recorded.
#include "statistics.h"

#include <map>

#include "admission/words.h"

namespace history
{

namespace
{

using std::chrono::milliseconds;
using ByName = std::map<std::string, ModuleStatistics>;

// Answers to checks that still stand are answers. A card that is decided on again has the answers of before
// with the later decision, too; each counts once, which UNION sees to.
constexpr const char *all_answers =
    "(SELECT d.devid, d.slotid, d.sslotid, a.module, a.ret, a.reason, a.at, a.registered, a.took_ms"
    " FROM answers a JOIN decisions d ON d.id = a.decision_id"
    " UNION SELECT c.devid, c.slotid, c.sslotid, o.module, o.ret, o.reason, o.at, o.registered, o.took_ms"
    " FROM open_answers o JOIN open_checks c ON c.id = o.check_id)";

ModuleStatistics &entry(ByName &modules, const std::string &name)
{
    ModuleStatistics &found = modules[name];
    found.module = name;
    return found;
}

void count_answers(const Database &database, std::optional<Time> from, ByName &modules)
{
    const std::string sql = std::string("SELECT module, count(*), sum(ret = 0), sum(ret <> 0),"
                                        " sum(registered = 0) FROM ") +
                            all_answers + " WHERE ?1 IS NULL OR at >= ?1 GROUP BY module";
    Statement rows(database, sql.c_str());
    rows.with(from);
    while (rows.step()) {
        ModuleStatistics &module = entry(modules, rows.text(0));
        module.answers = rows.number(1);
        module.passes = rows.number(2);
        module.denials = rows.number(3);
        module.unregistered = rows.number(4);
    }
}

// A module that was waited for when a restart of the daemon cut a check off had time left.
void count_silences(const Database &database, std::optional<Time> from, ByName &modules)
{
    Statement rows(database,
                   "SELECT s.module, count(*) FROM silent s JOIN decisions d ON d.id = s.decision_id"
                   " WHERE d.outcome <> ?2 AND (?1 IS NULL OR d.decided_at >= ?1) GROUP BY s.module");
    rows.with(from, admission::word_of(Outcome::withdrawn));
    while (rows.step()) {
        entry(modules, rows.text(0)).silences = rows.number(1);
    }
}

void count_waiting(const Database &database, ByName &modules)
{
    Statement rows(database, "SELECT module, count(*) FROM open_waiting GROUP BY module");
    while (rows.step()) {
        entry(modules, rows.text(0)).waited_for = rows.number(1);
    }
}

// The nearest rank: the least time that `part` of all times do not exceed.
milliseconds percentile(const std::vector<int64_t> &sorted, std::size_t part)
{
    const std::size_t rank = (sorted.size() * part + 99) / 100;
    return milliseconds(sorted[rank - 1]);
}

void set_times(ModuleStatistics &module, const std::vector<int64_t> &sorted)
{
    if (!sorted.empty()) {
        module.median = percentile(sorted, 50);
        module.percentile_95 = percentile(sorted, 95);
    }
}

void measure(const Database &database, std::optional<Time> from, ByName &modules)
{
    const std::string sql = std::string("SELECT took_ms FROM ") + all_answers +
                            " WHERE module = ?2 AND took_ms IS NOT NULL AND (?1 IS NULL OR at >= ?1)"
                            " ORDER BY took_ms";
    Statement rows(database, sql.c_str());
    for (auto &[name, module] : modules) {
        std::vector<int64_t> sorted;
        rows.with(from, name);
        while (rows.step()) {
            sorted.push_back(rows.number(0));
        }
        set_times(module, sorted);
    }
}

// Modules whose only answers are older than the time asked for are reported, too.
void find_last(const Database &database, ByName &modules)
{
    const std::string sql = std::string("SELECT module, ret, reason, max(at), registered, took_ms FROM ") +
                            all_answers + " GROUP BY module";
    Statement rows(database, sql.c_str());
    while (rows.step()) {
        Answer last{rows.text(0), rows.small(1), rows.text(2), rows.time(3), rows.number(4) != 0, {}};
        if (!rows.is_null(5)) {
            last.took = milliseconds(rows.number(5));
        }
        entry(modules, last.module).last = std::move(last);
    }
}

// How often a module that once answered was silent since then.
void count_silences_since(const Database &database, ByName &modules)
{
    Statement rows(database, "SELECT count(*) FROM silent s JOIN decisions d ON d.id = s.decision_id"
                             " WHERE d.outcome = 'silence' AND s.module = ?1"
                             " AND (?2 IS NULL OR d.decided_at > ?2)");
    for (auto &[name, module] : modules) {
        rows.with(name, module.last ? std::optional(module.last->at) : std::nullopt);
        if (rows.step()) {
            module.silences_since = rows.number(0);
        }
    }
}

} // namespace

std::vector<ModuleStatistics> read_module_statistics(const Database &database, std::optional<Time> from)
{
    ByName modules;
    count_answers(database, from, modules);
    count_silences(database, from, modules);
    count_waiting(database, modules);
    measure(database, from, modules);
    find_last(database, modules);
    count_silences_since(database, modules);
    std::vector<ModuleStatistics> all;
    all.reserve(modules.size());
    for (auto &known : modules) {
        all.push_back(std::move(known.second));
    }
    return all;
}

} // namespace history
