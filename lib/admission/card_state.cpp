// How a card stands, and since when.
#include <utility>

#include "card_entry.h"
#include "records/card_identity.h"

namespace admission
{

std::optional<State> state_after(Outcome outcome)
{
    switch (outcome) {
    case Outcome::passed:
        return State::passed;
    case Outcome::silence:
        return State::silence;
    case Outcome::denied:
        return State::denied;
    case Outcome::exempt:
        return State::exempt;
    case Outcome::unasked:
        return State::unasked;
    case Outcome::withdrawn:
    case Outcome::unseen:
        break;
    }
    return std::nullopt;
}

bool is_same_card(const CardFacts &one, const CardFacts &other)
{
    const auto is_blank = [](const CardFacts &card) { return card.name.empty() && card.serial.empty(); };
    return is_blank(one) || is_blank(other) || cg::has_same_identity(one, other);
}

// The card's state as it now is, and since when.
void CardTracker::settle(Entry &known, Time at, bool existing)
{
    TrackedCard &shown = known.shown;
    const State before = shown.state;
    shown.state = state_of(known);
    shown.open = known.open;
    shown.denied = shown.state == State::denied ||
                   (shown.state == State::offline && known.result == std::optional(false));
    shown.waiting_for = shown.state == State::waiting ? silent_ones(known) : std::vector<std::string>{};
    shown.any_will_do = !shown.waiting_for.empty() && known.list.empty();
    if (shown.state == State::waiting) {
        shown.since = shown.requested_at;
    } else if (shown.state != before) {
        const bool remembered = !known.settled && shown.last && agrees(known, *shown.last);
        const std::optional<Time> long_ago =
            remembered ? std::optional(shown.last->decided_at) : std::nullopt;
        shown.since = existing ? long_ago : std::optional(at);
    }
}

State CardTracker::state_of(const Entry &known)
{
    const CardFacts &card = known.shown.card;
    if (!known.has_card) {
        return State::absent;
    }
    if (card.node_type == main_board && known.result == std::optional(true)) {
        return State::exempt;
    }
    if (!card.online) {
        return State::offline;
    }
    if (known.shown.request) {
        return State::waiting;
    }
    if (known.settled) {
        return *known.settled;
    }
    if (known.shown.last && agrees(known, *known.shown.last)) {
        return *state_after(known.shown.last->outcome);
    }
    if (!known.result) {
        return State::undecided;
    }
    return *known.result ? State::passed : State::denied;
}

// Whether what the store says is what a remembered decision left behind.
bool CardTracker::agrees(const Entry &known, const Decision &last)
{
    const CardFacts &card = known.shown.card;
    return state_after(last.outcome).has_value() && known.result.has_value() &&
           last.admitted == known.result && last.card.name == card.name && last.card.serial == card.serial;
}

} // namespace admission
