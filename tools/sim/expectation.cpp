// Whether cards are as a scenario expects them.
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

bool same_names(std::vector<std::string> wanted, std::vector<std::string> seen)
{
    std::sort(wanted.begin(), wanted.end());
    std::sort(seen.begin(), seen.end());
    return wanted.empty() || wanted == seen;
}

// What is expected of a decision besides the state that it led to.
bool decided_so(const Expect &expect, const std::optional<Decision> &last)
{
    if (expect.modules.empty() && !expect.because) {
        return true;
    }
    if (!last) {
        return false;
    }
    const bool by_them = expect.state == State::silence
                             ? same_names(expect.modules, last->silent)
                             : expect.modules.empty() || last->decider == expect.modules.front();
    return by_them && (!expect.because || last->reason.find(*expect.because) != std::string::npos);
}

} // namespace

void Judge::ended(const Position &position)
{
    if (const auto found = fresh_.find(position); found != fresh_.end()) {
        found->second.decided = true;
    }
}

bool Judge::holds(const Expect &expect) const
{
    const TrackedCard *card = tracker_.find(expect.position);
    if (!expect.state) {
        return (card != nullptr && card->cannot_start) == expect.marked;
    }
    if (card == nullptr || card->state != *expect.state) {
        return card == nullptr && expect.state == State::absent;
    }
    const auto found = fresh_.find(expect.position);
    const Fresh fresh = found == fresh_.end() ? Fresh{} : found->second;
    switch (*expect.state) {
    case State::absent:
    case State::offline:
        return true;
    case State::waiting:
        return card->requested_at >= std::optional(fresh.at) && same_names(expect.modules, card->waiting_for);
    default:
        return fresh.decided && decided_so(expect, card->last);
    }
}

std::string Judge::seen(const Position &position) const
{
    const TrackedCard *card = tracker_.find(position);
    if (card == nullptr) {
        return text_of(State::absent);
    }
    const bool decided =
        card->state == State::passed || card->state == State::silence || card->state == State::denied;
    const std::string text = decided && card->last           ? decision_text(*card->last)
                             : card->state == State::offline ? text_of(State::offline)
                                                             : state_text(*card);
    return text + (card->cannot_start ? ", marked" : "");
}

} // namespace cg
