// A card's admission in words, the same in every view of it.
#ifndef ADMISSION_CARD_TEXT_H
#define ADMISSION_CARD_TEXT_H

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "admission/tracked_card.h"
#include "admission/words.h"
#include "base/terminal.h"
#include "records/record_text.h"

namespace cg
{

using admission::Time;

// "lc" for DM_TYPE_LC, the number for a type without a name.
std::string short_type(int32_t node_type);
// "master", "slave", "candidate", "none", or the number.
std::string role_word(int32_t role);

// "3 s", "12 min", "5 h", "2 d": what an eye wants to know of a span; never negative.
std::string span_text(std::chrono::milliseconds span);
// Seconds with what digits they need: "0.25 s", "12 s".
std::string seconds_text(std::chrono::milliseconds span);
// In local time: "14:02:11" on the same day as `now`, else "2026-11-20 14:02:11".
std::string clock_text(Time time, Time now);
// The same in at most twelve columns: "14:02:11", else "20 Nov 14:02", or "20 Nov 2025" after months.
std::string short_clock_text(Time time, Time now);
// In local time: "2026-11-20 14:02:11".
std::string date_text(Time time);
// UTC with milliseconds, as in 2026-05-01T12:00:00.123Z: how every JSON form says a time.
std::string utc_text(Time time);

// The denial that still stands, of this very card; null when there is none, or nobody saw it.
const admission::Decision *denial_of(const admission::TrackedCard &card);
// "waiting for m1, m3 (212 s left)", "passed by silence of m2", "passed unseen", "denied by m1", ...
// `left` is the tracker's time_left().
std::string state_text(const admission::TrackedCard &card,
                       std::optional<std::chrono::milliseconds> left = std::nullopt);
// The same in two parts for where there is little room, what counts most first: "waiting 212 s", "for m1,
// m3"; "denied", "by m1". The second one may be empty.
std::pair<std::string, std::string> state_parts(const admission::TrackedCard &card,
                                                std::optional<std::chrono::milliseconds> left);
// "(88 s ago)"
std::string ago_text(Time time, Time now);
// "14:02:11 (88 s ago)"; empty when it is not known.
std::string since_text(const admission::TrackedCard &card, Time now);
Tone tone_of(const admission::TrackedCard &card);

// What a check ended with: "passed by m2", "denied by m1: not enough power", "passed by silence of m2",
// "withdrawn while waiting for m2: the daemon was started afresh".
std::string decision_text(const admission::Decision &decision);

// "m1 PASS after 2 s", "m2 DENY after 0.2 s: too hot"
std::string answer_text(const admission::Answer &answer);

// What became of a card and how, in full: names and texts, in the order in which to show them. An empty name
// goes on with the one before.
std::vector<std::pair<std::string, std::string>>
facts_of_card(const admission::TrackedCard &card, std::optional<std::chrono::milliseconds> left, Time now);

// Counts cards by what an operator wants to know of them first: one that was denied counts as that, also when
// its denial has taken it off line.
class Sum
{
public:
    void add(const admission::TrackedCard &card);
    // "12 cards: 9 passed, 1 waiting, ..."; what no card is, is not named.
    [[nodiscard]] std::string text() const;

private:
    std::map<admission::State, std::size_t> counts_;
    std::size_t unseen_ = 0; // passes that nobody saw; not among the others
};

// The members of the JSON forms.
Json answer_json(const admission::Answer &answer);
Json decision_json(const admission::Decision &decision);
// "state", "unseen", "denied", "decider", "since", "waiting_for", "any_will_do", "requested_at",
// "time_left_s", "answers", "decision".
Json admission_json(const admission::TrackedCard &card, std::optional<std::chrono::milliseconds> left);

} // namespace cg

#endif
