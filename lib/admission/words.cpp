// Outcomes and states in words, each in one table: the words are an interface.
#include "admission/words.h"

#include <algorithm>
#include <array>

namespace admission
{

namespace
{

struct Words {
    const char *word;
    const char *text;
};

// In the order of the enumerations.
constexpr std::array outcomes{
    Words{"passed", "passed"},      Words{"silence", "admitted by time-out"}, Words{"denied", "denied"},
    Words{"exempt", "exempt"},      Words{"unasked", "no module registered"}, Words{"withdrawn", "withdrawn"},
    Words{"unseen", "ended unseen"}};
constexpr std::array states{
    Words{"absent", "absent"},   Words{"offline", "offline"}, Words{"undecided", "undecided"},
    Words{"waiting", "waiting"}, Words{"passed", "passed"},   Words{"silence", "admitted by time-out"},
    Words{"denied", "denied"},   Words{"exempt", "exempt"},   Words{"unasked", "no module registered"}};

const Words &words_of(Outcome outcome)
{
    return outcomes.at(static_cast<std::size_t>(outcome));
}

const Words &words_of(State state)
{
    return states.at(static_cast<std::size_t>(state));
}

} // namespace

const char *text_of(Outcome outcome)
{
    return words_of(outcome).text;
}

const char *word_of(Outcome outcome)
{
    return words_of(outcome).word;
}

std::optional<Outcome> outcome_of(std::string_view word)
{
    const auto *const found = std::find_if(outcomes.begin(), outcomes.end(),
                                           [&](const Words &known) { return known.word == word; });
    return found == outcomes.end() ? std::nullopt
                                   : std::optional(static_cast<Outcome>(found - outcomes.begin()));
}

const char *text_of(State state)
{
    return words_of(state).text;
}

const char *word_of(State state)
{
    return words_of(state).word;
}

std::span<const State> all_states()
{
    static constexpr std::array all{State::absent,  State::offline, State::undecided,
                                    State::waiting, State::passed,  State::silence,
                                    State::denied,  State::exempt,  State::unasked};
    static_assert(all.size() == states.size());
    return all;
}

} // namespace admission
