// Decisions over time, as bars of letters in a terminal or as a picture.
#ifndef SCREEN_DECISION_CHART_H
#define SCREEN_DECISION_CHART_H

#include <array>
#include <string>
#include <vector>

#include "base/terminal.h"
#include "history/history.h"

namespace cg
{

inline constexpr std::size_t outcome_count = 7;

// What ended within one step of time.
struct Bar {
    admission::Time from{};
    std::array<std::size_t, outcome_count> counts{}; // by admission::Outcome
    std::vector<std::string> gaps{};                 // why something may be missing
    [[nodiscard]] std::size_t total() const;
};

struct Chart {
    std::chrono::seconds step{};
    std::vector<Bar> bars{}; // one after the other, empty ones too
};

// Divides the span into at most `most_bars` steps of a length that people count in.
Chart make_chart(const std::vector<history::Decision> &decisions, const std::vector<history::Gap> &gaps,
                 admission::Time from, admission::Time until, std::size_t most_bars);

// The lines: for each bar its time, a letter for each decision (or for several, as the last line says), and
// their number. `width` columns for the letters.
std::vector<std::string> chart_lines(const Chart &chart, std::size_t width, const Terminal &terminal);

// P, S, D, E, U, W, and ? for what nobody saw.
char letter_of(admission::Outcome outcome);

// "2026-11-20 14:02", in local time.
std::string minute_text(admission::Time time);

} // namespace cg

#endif
