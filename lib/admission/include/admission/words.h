// Outcomes and states in words, for every view of them. The words are an interface.
#ifndef ADMISSION_WORDS_H
#define ADMISSION_WORDS_H

#include <optional>
#include <span>
#include <string_view>

#include "admission/decision.h"
#include "admission/state.h"

namespace admission
{

// For people: "passed", "admitted by time-out", "denied", "exempt", "no module registered", "withdrawn",
// "ended unseen".
const char *text_of(Outcome outcome);
// In one word, for files and programs: "passed", "silence", "denied", ...
const char *word_of(Outcome outcome);
// What word_of() gave, back; nothing for another word.
std::optional<Outcome> outcome_of(std::string_view word);

// For people: "absent", "offline", "undecided", "waiting", ...
const char *text_of(State state);
// In one word, for programs: "offline", "silence", ...
const char *word_of(State state);

// All of them, in the order of the enumeration.
std::span<const State> all_states();

} // namespace admission

#endif
