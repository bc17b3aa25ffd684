// cgctl history: every decision, from the recorder's file.
//
// Where nothing was received the list says so in its place: a list without gaps would be believed.
#include <algorithm>
#include <cstring>
#include <fstream>
#include <set>

#include "admission/words.h"
#include "base/failure.h"
#include "base/text.h"
#include "base/times.h"
#include "cards/past.h"
#include "command_line/verbs.h"
#include "forms/forms.h"
#include "history/reader.h"
#include "modules/module_folder.h"
#include "records/position.h"
#include "screen/decision_chart.h"
#include "screen/decision_svg.h"

namespace cg
{

namespace
{

struct HistoryOptions {
    std::string position{};
    std::optional<std::string> since{};
    std::optional<std::string> until{};
    std::string outcome{};
    std::string module{};
    std::optional<std::size_t> newest{};
    std::string svg{};
    std::string color = "auto";
    std::string history{};
    bool answers = false;
    bool chart = false;
};

std::vector<std::string> outcome_words()
{
    std::vector<std::string> words;
    for (std::size_t i = 0; i < outcome_count; ++i) {
        words.emplace_back(admission::word_of(static_cast<history::Outcome>(i)));
    }
    return words;
}

history::Filter filter_of(const HistoryOptions &options, Time now)
{
    history::Filter filter;
    filter.module = options.module;
    if (!options.position.empty()) {
        filter.position = parse_position(options.position);
    }
    if (options.since) {
        filter.from = parse_moment(*options.since, "--since", now);
    }
    if (options.until) {
        filter.until = parse_moment(*options.until, "--until", now);
    }
    if (filter.from && filter.until && *filter.from >= *filter.until) {
        throw Failure(wrong_usage, "--since is not before --until");
    }
    filter.outcome = admission::outcome_of(options.outcome);
    filter.newest = options.newest;
    return filter;
}

// Gaps before the first decision that is shown are not what was asked for.
Recorded find(const HistoryOptions &options, const history::Filter &filter, Time now)
{
    const history::Reader reader(history::path_or_default(options.history));
    std::vector<history::Decision> decisions = reader.decisions(filter);
    std::optional<Time> from = filter.from;
    if (filter.newest && decisions.size() == *filter.newest) {
        from = decisions.front().decided_at;
    }
    return {now,
            reader.path(),
            std::move(decisions),
            reader.gaps(from, filter.until),
            reader.life(from, filter.until),
            reader.alive_at(),
            reader.begun_at(),
            options.answers};
}

void write_svg(const std::string &path, const std::string &svg)
{
    std::ofstream file(path, std::ios::trunc);
    file << svg;
    file.close();
    if (!file) {
        throw Failure(failed, "cannot write " + visible(path) + ": " + std::strerror(errno));
    }
}

void draw(const Page &page, const Recorded &found, const HistoryOptions &options,
          const history::Filter &filter)
{
    constexpr std::size_t bars_on_a_screen = 24;
    constexpr std::size_t bars_in_a_picture = 120;
    constexpr std::size_t margin = 30; // for times and numbers; gaps have what is left
    const bool none = found.decisions.empty();
    const Time first = none ? found.begun_at.value_or(found.now) : found.decisions.front().decided_at;
    const Time from = filter.from.value_or(first);
    const Time until = std::max(filter.until.value_or(found.now), from + std::chrono::seconds(1));
    if (!options.svg.empty()) {
        write_svg(options.svg,
                  chart_svg(make_chart(found.decisions, found.gaps, from, until, bars_in_a_picture)));
    }
    if (options.chart && !page.session.json) {
        const std::size_t width = page.terminal.width;
        const Chart chart = make_chart(found.decisions, found.gaps, from, until, bars_on_a_screen);
        for (const std::string &line :
             chart_lines(chart, width > margin + 10 ? width - margin : 50, page.terminal)) {
            page.session.line(line);
        }
    }
}

// "no decision on 1/3/0 with outcome denied and module m1 is recorded for that time"
std::string nothing_found(const history::Filter &filter)
{
    std::string text = "no decision";
    text += filter.position ? " on " + filter.position->text() : "";
    text += filter.outcome ? std::string(" with outcome ") + admission::word_of(*filter.outcome) : "";
    if (!filter.module.empty()) {
        text += (filter.outcome ? " and module " : " with module ") + visible(filter.module);
    }
    return text + " is recorded" + (filter.from || filter.until ? " for that time" : "");
}

// Nothing is found of a module that is not there, too.
std::string doubt_about(const std::string &module, const std::string &file)
{
    std::set<std::string> known;
    for (const history::ModuleStatistics &numbers : history::Reader(file).module_statistics({})) {
        known.insert(numbers.module);
    }
    for (const ModuleEntry &entry : read_module_folder(default_module_folder).entries) {
        known.insert(entry.name);
    }
    if (module.empty() || known.contains(module)) {
        return "";
    }
    return "; no module of that name is known" +
           (known.empty() ? "" : "; " + suggestion(module, {known.begin(), known.end()}));
}

int run_history(const Session &session, const HistoryOptions &options)
{
    const Time now = std::chrono::system_clock::now();
    const history::Filter filter = filter_of(options, now);
    const Recorded found = find(options, filter, now);
    const Page page{session, terminal_of(session, options.color)};
    const bool is_drawn = options.chart || !options.svg.empty();
    if (is_drawn) {
        draw(page, found, options, filter);
    }
    if (session.json || !is_drawn) {
        form_of(session).history(page, found);
    }
    if (const std::string text = not_recorded_text({found.alive_at}, now); !text.empty()) {
        session.notice(text);
    }
    if (!found.decisions.empty()) {
        return done;
    }
    const std::string nothing = nothing_found(filter);
    if (filter.position || filter.outcome || !filter.module.empty()) {
        throw Failure(failed, nothing + doubt_about(filter.module, found.file));
    }
    session.notice(nothing); // an empty period is not an error
    return done;
}

} // namespace

void add_history(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(app, session, "history",
                              "List the recorded decisions: the card, who decided, who was silent, why",
                              "  cgctl history --since 2h\n"
                              "  cgctl history 1/3 --answers\n"
                              "  cgctl history --outcome silence --since 2026-11-20 --json\n"
                              "  cgctl history --since 7d --chart --svg week.svg");
    auto options = std::make_shared<HistoryOptions>();
    verb->add_option("POS", options->position, "Only decisions on this card");
    verb->add_option("--since", options->since,
                     "From then on: 90s, 30m, 2h or 7d ago, or 2026-11-20[T14:02[:11]][Z]")
        ->type_name("TIME");
    verb->add_option("--until", options->until, "Before then")->type_name("TIME");
    verb->add_option("--outcome", options->outcome, "Only those that ended so; silence: admitted by time-out")
        ->check(CLI::IsMember(outcome_words()));
    verb->add_option("--module", options->module, "Only those that it answered, or was silent to")
        ->type_name("MODULE");
    verb->add_option("--last", options->newest, "Only so many, the newest ones")
        ->type_name("N")
        ->check(CLI::Range(1, INT32_MAX));
    verb->add_flag("-v,--answers", options->answers, "Print each module's answer, too");
    verb->add_flag("--chart", options->chart, "Draw bars over time instead, a letter for each decision");
    verb->add_option("--svg", options->svg, "Draw them into a file for a browser")->type_name("FILE");
    add_view_options(*verb, options->color, options->history);
    set_action(*verb, session, options, run_history);
}

} // namespace cg
