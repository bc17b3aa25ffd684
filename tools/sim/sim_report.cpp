// How a play is shown.
#include "sim_report.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>

#include "admission/card_text.h"
#include "base/table.h"
#include "base/text.h"

namespace cg
{

namespace
{

constexpr std::size_t position_width = 8;
constexpr std::size_t most_mistakes = 20;

// What the live messages go to.
Terminal error_terminal(const Session &session)
{
    Terminal terminal;
    terminal.is_one = &session.err == &std::cerr && isatty(STDERR_FILENO) == 1;
    const char *unwanted = getenv("NO_COLOR");
    terminal.colour = terminal.is_one && (unwanted == nullptr || *unwanted == '\0');
    return terminal;
}

std::string clock_with_tenths(admission::Time at)
{
    const auto part = at - std::chrono::floor<std::chrono::seconds>(at);
    const auto tenths = std::chrono::duration_cast<std::chrono::milliseconds>(part).count() / 100;
    return clock_text(at, at) + '.' + std::to_string(tenths);
}

Json event_json(const SimEvent &event)
{
    Json object{{"time", utc_text(event.at)}, {"event", event.kind}};
    if (event.card) {
        object["card"] = event.card->text();
    }
    if (event.kind == "say") {
        object["text"] = event.text;
    }
    object.update(event.more);
    return object;
}

std::size_t held_of(const SimPlayer &player)
{
    const auto &results = player.results();
    return static_cast<std::size_t>(std::count_if(
        results.begin(), results.end(), [](const ExpectationResult &result) { return result.held; }));
}

std::vector<Cell> row_of(const ExpectationResult &result, bool with_file)
{
    const std::string line = std::to_string(result.line);
    return {{with_file ? visible(result.file) + ':' + line : line},
            {result.position.text()},
            {visible(result.name)},
            {result.expected},
            {result.seen},
            {scenario::text_of(scenario::Milliseconds(result.took.count() / 100 * 100))},
            {result.held ? "ok" : "MISSED", result.held ? Tone::good : Tone::bad}};
}

} // namespace

void report_event(const Session &session, const SimEvent &event)
{
    if (session.json) {
        session.line(dump(event_json(event)));
        return;
    }
    const Terminal terminal = error_terminal(session);
    if (event.kind == "say") {
        session.err << toned(terminal, Tone::quiet, "-- " + visible(event.text)) << std::endl;
    } else if (!event.text.empty()) {
        std::string where = event.card ? event.card->text() : "chassis";
        where.resize(std::max(position_width, where.size()), ' ');
        session.err << clock_with_tenths(event.at) + "  " + where + ' ' +
                           toned(terminal, event.tone, event.text)
                    << std::endl;
    }
}

void report_results(const Session &session, const SimPlayer &player, bool complete)
{
    const std::size_t held = held_of(player);
    const std::size_t all = player.expectations();
    if (session.json) {
        session.line(dump(Json{{"version", 1},
                               {"event", "summary"},
                               {"expectations", all},
                               {"held", held},
                               {"missed", player.results().size() - held},
                               {"complete", complete}}));
        return;
    }
    const auto &results = player.results();
    const bool several = std::any_of(results.begin(), results.end(), [&](const ExpectationResult &result) {
        return result.file != results.front().file;
    });
    std::vector<std::vector<Cell>> rows;
    std::transform(results.begin(), results.end(), std::back_inserter(rows),
                   [&](const ExpectationResult &result) { return row_of(result, several); });
    if (!rows.empty()) {
        const std::vector<Column> columns{{"line", 0},  {"card", 0},  {"name", 8}, {"expected", 16},
                                          {"seen", 16}, {"after", 0}, {"", 0}};
        for (const std::string &line : table_lines(columns, rows, terminal_of(session, "auto"))) {
            session.line(line);
        }
    }
    session.line(std::to_string(held) + " of " + std::to_string(all) + " expectations held" +
                 (complete ? "." : "; the play was broken off."));
}

void report_mistakes(const Session &session, const scenario::Scenario &scenario, std::string_view text)
{
    const std::string count = std::to_string(scenario.problems.size());
    const std::string sum = visible(scenario.file) + ": " + count +
                            (scenario.problems.size() == 1 ? " mistake" : " mistakes") +
                            "; nothing is played";
    if (session.json) {
        Json mistakes = Json::array();
        for (const scenario::Problem &problem : scenario.problems) {
            mistakes.push_back({{"file", scenario.file},
                                {"line", problem.place.line},
                                {"column", problem.place.column},
                                {"message", problem.message}});
        }
        session.err << dump(Json{{"error", sum}, {"mistakes", mistakes}}) << std::endl;
        return;
    }
    for (std::size_t i = 0; i < std::min(most_mistakes, scenario.problems.size()); ++i) {
        session.err << scenario::shown(scenario, text, scenario.problems[i]) << '\n';
    }
    session.error(sum);
}

} // namespace cg
