// Whether a card is as a scenario expects it.
#ifndef SIM_EXPECTATION_H
#define SIM_EXPECTATION_H

#include <string>

#include "admission/card_tracker.h"
#include "scenario.h"

namespace cg
{

// `card` may be null: nothing is known of the position. `touched_at` is when it last came on line by our
// doing, and `decided_since` whether a check has ended since; what was before that does not count.
bool holds(const scenario::Expect &expect, const admission::TrackedCard *card, admission::Time touched_at,
           bool decided_since);

// How the card is, in the words of an expectation: "denied by m1: too warm", "waiting for m2".
std::string seen_text(const admission::TrackedCard *card);

} // namespace cg

#endif
