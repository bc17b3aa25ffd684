// How a play is shown.
#include "report.h"

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

// What the live messages go to.
Terminal error_terminal(const Output &output)
{
    Terminal terminal;
    terminal.is_one = &output.err == &std::cerr && isatty(STDERR_FILENO) == 1;
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

Json event_json(admission::Time at, const Event &event)
{
    Json object{{"time", utc_text(at)}, {"event", event.kind}};
    if (event.card) {
        object["card"] = event.card->text();
    }
    if (event.kind == "say") {
        object["text"] = event.text;
    }
    object.update(event.more);
    return object;
}

std::vector<Cell> row_of(const ExpectationResult &result, bool with_file)
{
    const std::string line = std::to_string(result.line);
    return {{with_file ? visible(result.file) + ':' + line : line},
            {result.position.text()},
            {visible(result.name)},
            {result.expected},
            {result.seen},
            {seconds_text(scenario::Milliseconds(result.after.count() / 100 * 100))},
            {result.held ? "ok" : "MISSED", result.held ? Tone::good : Tone::bad}};
}

void print_table(const Output &output, const std::vector<ExpectationResult> &results)
{
    if (results.empty()) {
        return;
    }
    const bool several = std::any_of(results.begin(), results.end(), [&](const ExpectationResult &result) {
        return result.file != results.front().file;
    });
    std::vector<std::vector<Cell>> rows;
    std::transform(results.begin(), results.end(), std::back_inserter(rows),
                   [&](const ExpectationResult &result) { return row_of(result, several); });
    const std::vector<Column> columns{{"line", 0},  {"card", 0},  {"name", 8}, {"expected", 16},
                                      {"seen", 16}, {"after", 0}, {"", 0}};
    for (const std::string &line : table_lines(columns, rows, terminal_of(output, "auto"))) {
        output.line(line);
    }
}

} // namespace

void report_event(const Output &output, admission::Time at, const Event &event)
{
    if (output.json) {
        output.line(dump(event_json(at, event)));
        return;
    }
    const Terminal terminal = error_terminal(output);
    if (event.kind == "say") {
        output.err << toned(terminal, Tone::quiet, "-- " + visible(event.text)) << std::endl;
    } else if (!event.text.empty()) {
        std::string where = event.card ? event.card->text() : "chassis";
        where.resize(std::max(position_width, where.size()), ' ');
        output.err << clock_with_tenths(at) + "  " + where + ' ' + toned(terminal, event.tone, event.text)
                   << std::endl;
    }
}

void report_results(const Output &output, const Player &player)
{
    const auto &results = player.results();
    const auto held = static_cast<std::size_t>(std::count_if(
        results.begin(), results.end(), [](const ExpectationResult &result) { return result.held; }));
    if (output.json) {
        output.line(dump(Json{{"version", 1},
                              {"event", "summary"},
                              {"expectations", player.expectations()},
                              {"held", held},
                              {"missed", results.size() - held},
                              {"complete", player.is_finished()}}));
        return;
    }
    print_table(output, results);
    output.line(std::to_string(held) + " of " + std::to_string(player.expectations()) + " expectations held" +
                (player.is_finished() ? "." : "; the play was aborted."));
}

} // namespace cg
