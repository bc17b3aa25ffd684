// Outcomes and states in words, each in one table: the words are an interface.
#include "admission/words.h"

#include <array>

namespace admission
{

namespace
{

template <typename Value>
struct Words {
    Value value;
    const char *word;
    const char *text;
};

constexpr std::array outcomes{
    Words<Outcome>{Outcome::passed, "passed", "passed"},
    Words<Outcome>{Outcome::silence, "silence", "admitted by time-out"},
    Words<Outcome>{Outcome::denied, "denied", "denied"},
    Words<Outcome>{Outcome::exempt, "exempt", "exempt"},
    Words<Outcome>{Outcome::unasked, "unasked", "no module registered"},
    Words<Outcome>{Outcome::withdrawn, "withdrawn", "withdrawn"},
    Words<Outcome>{Outcome::unseen, "unseen", "ended unseen"},
};

constexpr std::array states{
    Words<State>{State::absent, "absent", "absent"},
    Words<State>{State::offline, "offline", "offline"},
    Words<State>{State::undecided, "undecided", "undecided"},
    Words<State>{State::waiting, "waiting", "waiting"},
    Words<State>{State::passed, "passed", "passed"},
    Words<State>{State::silence, "silence", "admitted by time-out"},
    Words<State>{State::denied, "denied", "denied"},
    Words<State>{State::exempt, "exempt", "exempt"},
    Words<State>{State::unasked, "unasked", "no module registered"},
};

template <typename Table, typename Value>
const auto &row(const Table &table, Value value)
{
    return table.at(static_cast<std::size_t>(value)); // the tables stand in the enumerations' order
}

} // namespace

const char *text_of(Outcome outcome)
{
    return row(outcomes, outcome).text;
}

const char *word_of(Outcome outcome)
{
    return row(outcomes, outcome).word;
}

std::optional<Outcome> outcome_of(std::string_view word)
{
    for (const auto &known : outcomes) {
        if (known.word == word) {
            return known.value;
        }
    }
    return std::nullopt;
}

std::span<const State> all_states()
{
    static constexpr auto values = [] {
        std::array<State, states.size()> all{};
        for (std::size_t i = 0; i < all.size(); ++i) {
            all[i] = states[i].value;
        }
        return all;
    }();
    return values;
}

const char *text_of(State state)
{
    return row(states, state).text;
}

const char *word_of(State state)
{
    return row(states, state).word;
}

} // namespace admission
