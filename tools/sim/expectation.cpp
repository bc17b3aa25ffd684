// Whether a card is as a scenario expects it.
#include "expectation.h"

#include <algorithm>

#include "admission/card_text.h"

namespace cg
{

namespace
{

using admission::Decision;
using admission::State;
using admission::TrackedCard;
using scenario::Expect;
using scenario::Wanted;

// What a state needs to be; nothing for what is no state.
std::optional<State> state_of(Wanted wanted)
{
    switch (wanted) {
    case Wanted::passed:
        return State::passed;
    case Wanted::silence:
        return State::silence;
    case Wanted::denied:
        return State::denied;
    case Wanted::waiting:
        return State::waiting;
    case Wanted::exempt:
        return State::exempt;
    case Wanted::unasked:
        return State::unasked;
    case Wanted::offline:
        return State::offline;
    case Wanted::absent:
        return State::absent;
    case Wanted::marked:
    case Wanted::unmarked:
        break;
    }
    return std::nullopt;
}

bool same_names(std::vector<std::string> wanted, std::vector<std::string> seen)
{
    std::sort(wanted.begin(), wanted.end());
    std::sort(seen.begin(), seen.end());
    return wanted.empty() || wanted == seen;
}

// The rest of what is expected of a card that was decided.
bool decided_so(const Expect &expect, const std::optional<Decision> &last)
{
    if (expect.modules.empty() && !expect.because) {
        return true;
    }
    if (!last) {
        return false;
    }
    const bool by_them = expect.wanted == Wanted::silence
                             ? same_names(expect.modules, last->silent)
                             : expect.modules.empty() || last->decider == expect.modules.front();
    return by_them && (!expect.because || last->reason.find(*expect.because) != std::string::npos);
}

} // namespace

bool holds(const Expect &expect, const TrackedCard *card, admission::Time touched_at, bool decided_since)
{
    const std::optional<State> state = state_of(expect.wanted);
    if (!state) {
        return (card != nullptr && card->cannot_start) == (expect.wanted == Wanted::marked);
    }
    if (card == nullptr || card->state != *state) {
        return card == nullptr && *state == State::absent;
    }
    switch (*state) {
    case State::absent:
    case State::offline:
        return true;
    case State::waiting:
        return card->requested_at >= std::optional(touched_at) &&
               same_names(expect.modules, card->waiting_for);
    default:
        return decided_since && decided_so(expect, card->last);
    }
}

std::string seen_text(const TrackedCard *card)
{
    if (card == nullptr) {
        return text_of(State::absent);
    }
    const bool decided =
        card->state == State::passed || card->state == State::silence || card->state == State::denied;
    std::string text = decided && card->last ? decision_text(*card->last) : state_text(*card);
    if (card->state == State::offline) {
        text = word_of(card->state); // as the statement is called
    }
    return text + (card->cannot_start ? ", marked" : "");
}

} // namespace cg
