// cgctl modules: how each check module answers, and which one never does.
//
// A module that is registered and does not run costs every card 300 seconds, and then all its checks are for
// nothing; this tells before the first card comes.
#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "admission/card_text.h"
#include "base/failure.h"
#include "base/table.h"
#include "base/text.h"
#include "base/times.h"
#include "cards/past.h"
#include "command_line/verbs.h"
#include "history/reader.h"
#include "modules/module_folder.h"

namespace cg
{

namespace
{

struct ModulesOptions {
    std::optional<std::string> since{};
    std::string modules = default_module_folder;
    std::string color = "auto";
    std::string history{};
};

struct Row {
    history::ModuleStatistics numbers{};
    bool registered = false;
    bool asked = false; // some check waited for it, at any time

    [[nodiscard]] bool never_answered() const { return registered && !numbers.last; }
    // The first checks that wait for it still stand: it may be about to answer.
    [[nodiscard]] bool may_yet_answer() const
    {
        return never_answered() && numbers.silences_since == 0 && numbers.waited_for > 0;
    }
    // It answered once, and all checks that waited for it since then ended by the time.
    [[nodiscard]] bool fell_silent() const
    {
        return registered && numbers.last && numbers.silences_since > 0;
    }
    [[nodiscard]] Tone tone() const
    {
        return may_yet_answer()                               ? Tone::waiting
               : (never_answered() && asked) || fell_silent() ? Tone::bad
                                                              : Tone::plain;
    }
    [[nodiscard]] bool is_stranger() const { return !registered && numbers.last; }
};

std::vector<Row> rows_of(const ModuleFolder &folder, std::vector<history::ModuleStatistics> statistics,
                         const std::set<std::string> &asked)
{
    std::map<std::string, Row> rows;
    for (history::ModuleStatistics &numbers : statistics) {
        rows[numbers.module].numbers = std::move(numbers);
    }
    for (std::size_t i = 0; i < std::min(folder.entries.size(), most_modules); ++i) {
        Row &row = rows[folder.entries[i].name];
        row.numbers.module = folder.entries[i].name;
        row.registered = true;
    }
    std::vector<Row> all;
    for (auto &[name, row] : rows) {
        row.asked = asked.contains(name);
        all.push_back(std::move(row));
    }
    return all;
}

std::set<std::string> modules_asked(const history::Reader &reader)
{
    std::set<std::string> asked;
    for (const history::ModuleStatistics &numbers : reader.module_statistics({})) {
        if (numbers.silences > 0 || numbers.waited_for > 0 || numbers.last) {
            asked.insert(numbers.module);
        }
    }
    return asked;
}

std::string waited_for_text(const history::ModuleStatistics &numbers)
{
    return "waited for by " + std::to_string(numbers.waited_for) +
           (numbers.waited_for == 1 ? " card" : " cards");
}

std::string note_on(const Row &row, Time now)
{
    if (row.fell_silent()) {
        const int64_t checks = row.numbers.silences_since;
        return "SILENT SINCE " + clock_text(row.numbers.last->at, now) + ": " + std::to_string(checks) +
               (checks == 1 ? " check" : " checks") + " ended without it, every card waits 300 s for it";
    }
    if (row.never_answered() && !row.asked) {
        return "has not been waited for yet";
    }
    if (row.may_yet_answer()) {
        return "first asked: " + waited_for_text(row.numbers);
    }
    if (row.never_answered()) {
        return "NEVER ANSWERED: every card waits 300 s for it";
    }
    if (row.is_stranger()) {
        return "not registered: its answers are passed over";
    }
    return row.numbers.waited_for > 0 ? waited_for_text(row.numbers) : "";
}

std::string span_or_dash(const std::optional<std::chrono::milliseconds> &span)
{
    return span ? seconds_text(*span) : "-";
}

std::string last_text(const history::ModuleStatistics &numbers, Time now, const Terminal &terminal)
{
    if (!numbers.last) {
        return "-";
    }
    const std::string verdict = numbers.last->ret == 0 ? "PASS" : "DENY";
    const Time at = numbers.last->at;
    return terminal.is_one ? verdict + ' ' + short_clock_text(at, now) : clock_text(at, now) + ' ' + verdict;
}

std::vector<Cell> cells_of(const Row &row, Time now, const Terminal &terminal)
{
    const history::ModuleStatistics &numbers = row.numbers;
    Cell note{note_on(row, now), row.is_stranger() ? Tone::warning : row.tone()};
    if (terminal.is_one) {
        note.rest = std::exchange(note.text, "");
    }
    return {{visible(numbers.module), row.tone()},
            {row.registered ? "yes" : "no"},
            {std::to_string(numbers.answers)},
            {std::to_string(numbers.passes)},
            {std::to_string(numbers.denials)},
            {std::to_string(numbers.silences), numbers.silences > 0 ? Tone::warning : Tone::plain},
            {span_or_dash(numbers.median)},
            {span_or_dash(numbers.percentile_95)},
            {last_text(numbers, now, terminal)},
            std::move(note)};
}

Json seconds_json(const std::optional<std::chrono::milliseconds> &span)
{
    return span ? Json(static_cast<double>(span->count()) / 1000) : Json(nullptr);
}

Json json_of(const Row &row)
{
    const history::ModuleStatistics &numbers = row.numbers;
    return {{"name", numbers.module},
            {"registered", row.registered},
            {"never_answered", row.never_answered()},
            {"silences_since_answer", numbers.silences_since},
            {"answers", numbers.answers},
            {"passes", numbers.passes},
            {"denials", numbers.denials},
            {"unregistered_answers", numbers.unregistered},
            {"silences", numbers.silences},
            {"median_s", seconds_json(numbers.median)},
            {"percentile_95_s", seconds_json(numbers.percentile_95)},
            {"waited_for", numbers.waited_for},
            {"last_answer", numbers.last ? answer_json(*numbers.last) : Json(nullptr)}};
}

void print(const Session &session, const std::vector<Row> &rows, Time now, const Terminal &terminal)
{
    const char *registered = terminal.is_one ? "REG" : "REGISTERED"; // 80 columns are few
    const std::vector<Column> columns{{"MODULE", 0}, {registered, 0}, {"ANSWERS", 0}, {"PASS", 0},
                                      {"DENY", 0},   {"SILENT", 0},   {"MEDIAN", 0},  {"95 %", 0},
                                      {"LAST", 8},   {"NOTE", 14}};
    std::vector<std::vector<Cell>> cells;
    cells.reserve(rows.size());
    for (const Row &row : rows) {
        cells.push_back(cells_of(row, now, terminal));
    }
    for (const std::string &line : table_lines(columns, cells, terminal)) {
        session.line(line);
    }
}

int run_modules(const Session &session, const ModulesOptions &options)
{
    const Time now = std::chrono::system_clock::now();
    const Terminal terminal = terminal_of(session, options.color);
    std::optional<Time> since;
    if (options.since) {
        since = parse_moment(*options.since, "--since", now);
    }
    const ModuleFolder folder = read_module_folder(options.modules);
    if (!folder.readable) {
        throw Failure(failed, "the modules' folder " + visible(options.modules) +
                                  " cannot be read: " + folder.problem);
    }
    const history::Reader reader(history::path_or_default(options.history));
    const Heartbeat heartbeat{reader.alive_at()};
    const std::vector<Row> rows = rows_of(folder, reader.module_statistics(since), modules_asked(reader));
    if (session.json) {
        Json json{{"version", 1},
                  {"file", reader.path()},
                  {"folder", options.modules},
                  {"recorded_until", heartbeat.at ? Json(utc_text(*heartbeat.at)) : Json(nullptr)},
                  {"since", since ? Json(utc_text(*since)) : Json(nullptr)},
                  {"modules", Json::array()}};
        for (const Row &row : rows) {
            json["modules"].push_back(json_of(row));
        }
        session.line(dump(json));
    } else if (!rows.empty()) {
        print(session, rows, now, terminal);
    } else {
        session.notice(
            "no module is registered and none has answered: every card is admitted without a check");
    }
    if (const std::string text = not_recorded_text(heartbeat, now); !text.empty()) {
        session.notice(text);
    }
    return done;
}

} // namespace

void add_modules(CLI::App &app, Session &session)
{
    CLI::App *verb =
        add_verb(app, session, "modules",
                 "Show how each check module answers, and which never did, from the recorder's file",
                 "  cgctl modules\n"
                 "  cgctl modules --since 7d --json");
    auto options = std::make_shared<ModulesOptions>();
    verb->add_option("--since", options->since,
                     "Count from then on: 90s, 30m, 2h or 7d ago, or 2026-11-20[T14:02][Z]")
        ->type_name("TIME");
    verb->add_option("--modules", options->modules, "The folder of the modules")->type_name("FOLDER");
    add_view_options(*verb, options->color, options->history);
    set_action(*verb, session, options, run_modules);
}

} // namespace cg
