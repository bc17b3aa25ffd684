// Decisions over time, as bars of letters. Letters, so that it reads without colours and in a log.
#include "screen/decision_chart.h"

#include <algorithm>
#include <ctime>
#include <numeric>
#include <utility>

#include "admission/card_text.h"
#include "admission/words.h"
#include "base/text.h"

namespace cg
{

namespace
{

using admission::Outcome;
using admission::Time;
using std::chrono::seconds;

// In the order of the enumeration.
constexpr std::array<char, outcome_count> all_letters{'P', 'T', 'D', 'E', 'N', 'W', '?'};

// Whole days begin at midnight UTC, not in the user's zone: bars stay where they are when clocks change.
constexpr std::array<int64_t, 17> steps_s{1,    5,     15,    60,    300,   600,    900,    1800,   3600,
                                          7200, 10800, 21600, 43200, 86400, 172800, 604800, 2592000};

seconds step_for(Time from, Time until, std::size_t most_bars)
{
    for (const int64_t step : steps_s) {
        const seconds length(step);
        const auto first = std::chrono::floor<seconds>(from).time_since_epoch() / length;
        const auto last = std::chrono::ceil<seconds>(until).time_since_epoch() / length;
        if (last - first < static_cast<int64_t>(most_bars)) {
            return length;
        }
    }
    const auto all = std::chrono::ceil<seconds>(until - from);
    return all / static_cast<int64_t>(most_bars - 1) + seconds(1);
}

void mark_gap(Chart &chart, const history::Gap &gap, Time until)
{
    for (Bar &bar : chart.bars) {
        const bool touches = gap.from < bar.from + chart.step && gap.until.value_or(until) >= bar.from;
        if (touches && std::find(bar.gaps.begin(), bar.gaps.end(), gap.why) == bar.gaps.end()) {
            bar.gaps.push_back(gap.why);
        }
    }
}

std::size_t letters_of(std::size_t count, std::size_t each)
{
    return (count + each - 1) / each;
}

std::size_t letters_of(const Bar &bar, std::size_t each)
{
    return std::accumulate(
        bar.counts.begin(), bar.counts.end(), std::size_t{0},
        [each](std::size_t sum, std::size_t count) { return sum + letters_of(count, each); });
}

// How many decisions a letter stands for, so that no bar is longer than this.
std::size_t decisions_in_a_letter(const Chart &chart, std::size_t width)
{
    const std::size_t most = std::max(width, outcome_count); // each outcome has a letter at least
    std::size_t each = 1;
    for (const Bar &bar : chart.bars) {
        while (letters_of(bar, each) > most) {
            ++each;
        }
    }
    return each;
}

// In as many lines as the terminal is narrow.
void add_legend(std::vector<std::string> &lines, std::size_t each, const Terminal &terminal)
{
    std::string line;
    std::size_t used = 0;
    const auto add = [&](const std::string &text, std::size_t columns) {
        if (terminal.is_one && used > 0 && used + 1 + columns > terminal.width) {
            lines.push_back(std::exchange(line, ""));
            used = 0;
        }
        line += (line.empty() ? "" : " ") + text;
        used += columns + (used == 0 ? 0 : 1);
    };
    for (std::size_t i = 0; i < outcome_count; ++i) {
        const auto outcome = static_cast<Outcome>(i);
        const std::string text = std::string(" ") + text_of(outcome) + (i + 1 == outcome_count ? ";" : ",");
        add(toned(terminal, tone_of(outcome), std::string(1, letter_of(outcome))) + text, 1 + text.size());
    }
    const std::string scale =
        "a letter is " + (each == 1 ? "one decision" : "up to " + std::to_string(each) + " decisions");
    add(scale, scale.size());
    lines.push_back(line);
}

std::string bar_line(const Bar &bar, std::size_t each, std::size_t width, const Terminal &terminal)
{
    std::string line = minute_text(bar.from) + " |";
    std::size_t used = 0;
    for (std::size_t i = 0; i < outcome_count; ++i) {
        const std::size_t letters = letters_of(bar.counts.at(i), each);
        if (letters > 0) {
            const auto outcome = static_cast<Outcome>(i);
            line += toned(terminal, tone_of(outcome), std::string(letters, letter_of(outcome)));
            used += letters;
        }
    }
    if (const std::size_t total = bar.total(); total > 0 || !bar.gaps.empty()) {
        line += std::string(std::max(width, used) - used, ' ') + "| " + std::to_string(total);
    }
    std::string gaps;
    for (const std::string &why : bar.gaps) {
        gaps += "  (" + visible(why) + ')';
    }
    if (terminal.is_one) {
        const std::size_t before = columns_of(minute_text(bar.from)) + 2 + std::max(width, used) + 2 +
                                   std::to_string(bar.total()).size();
        gaps = cut_to(gaps, terminal.width > before ? terminal.width - before : 0);
    }
    return line + gaps;
}

} // namespace

std::size_t Bar::total() const
{
    return std::accumulate(counts.begin(), counts.end(), std::size_t{0});
}

char letter_of(Outcome outcome)
{
    return all_letters.at(static_cast<std::size_t>(outcome));
}

std::string minute_text(Time time)
{
    const time_t value = std::chrono::system_clock::to_time_t(std::chrono::floor<seconds>(time));
    tm parts{};
    localtime_r(&value, &parts);
    std::array<char, 40> text{};
    return {text.data(), strftime(text.data(), text.size(),
                                  parts.tm_sec == 0 ? "%Y-%m-%d %H:%M" : "%Y-%m-%d %H:%M:%S", &parts)};
}

Chart make_chart(const std::vector<history::Decision> &decisions, const std::vector<history::Gap> &gaps,
                 Time from, Time until, std::size_t most_bars)
{
    Chart chart;
    chart.step = step_for(from, until, most_bars);
    const auto first = std::chrono::floor<seconds>(from).time_since_epoch() / chart.step;
    for (auto number = first;; ++number) {
        const Time begin{number * chart.step};
        if (begin >= until && !chart.bars.empty()) {
            break;
        }
        chart.bars.push_back({begin, {}, {}});
    }
    for (const history::Decision &decision : decisions) {
        const auto place =
            std::chrono::floor<seconds>(decision.decided_at).time_since_epoch() / chart.step - first;
        const auto last = static_cast<int64_t>(chart.bars.size()) - 1;
        Bar &bar = chart.bars[static_cast<std::size_t>(std::clamp<int64_t>(place, 0, last))];
        ++bar.counts.at(static_cast<std::size_t>(decision.outcome));
    }
    for (const history::Gap &gap : gaps) {
        mark_gap(chart, gap, until);
    }
    return chart;
}

std::vector<std::string> chart_lines(const Chart &chart, std::size_t width, const Terminal &terminal)
{
    const std::size_t each = decisions_in_a_letter(chart, width);
    std::vector<std::string> lines;
    for (const Bar &bar : chart.bars) {
        lines.push_back(bar_line(bar, each, width, terminal));
    }
    add_legend(lines, each, terminal);
    return lines;
}

} // namespace cg
