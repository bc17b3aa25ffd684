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

// "lc" for DM_TYPE_LC, the number for a type without a name.
std::string short_type(int32_t node_type);
// "master", "slave", "candidate", "none", or the number.
std::string role_word(int32_t role);

// The denial that still stands, of this very card; null when there is none, or nobody saw it.
const admission::Decision *denial_of(const admission::TrackedCard &card);
// "waiting for m1, m3 (212 s left)", "admitted by time-out of m2", "denied by m1", ...
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
Tone tone_of(admission::Outcome outcome);
// That of its outcome; a check that was cut off stands out among those that were withdrawn.
Tone tone_of(const admission::Decision &decision);

// What a check ended with: "passed by m2", "denied by m1: not enough power", "admitted by time-out of m2",
// "withdrawn while waiting for m2: the daemon was restarted".
std::string decision_text(const admission::Decision &decision);

// "m1 PASS after 2 s", "m2 DENY after 0.2 s: too hot"
std::string answer_text(const admission::Answer &answer);

// Counts cards by what an operator wants to know of them first: one that was denied counts as that, also when
// its denial has taken it offline.
class Summary
{
public:
    void add(const admission::TrackedCard &card);
    // "12 cards: 9 passed, 1 waiting, ..."; what no card is, is not named.
    [[nodiscard]] std::string text() const;

private:
    std::map<admission::State, std::size_t> counts_;
};

// The members of the JSON forms.
Json answer_json(const admission::Answer &answer);
Json decision_json(const admission::Decision &decision);
// "state", "unseen", "denied", "decider", "since", "waiting_for", "any_will_do", "requested_at",
// "time_left_s", "answers", "decision".
Json admission_json(const admission::TrackedCard &card, std::optional<std::chrono::milliseconds> left);

} // namespace cg

#endif
