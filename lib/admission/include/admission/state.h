// How a card stands.
#ifndef ADMISSION_STATE_H
#define ADMISSION_STATE_H

#include <optional>

#include "admission/decision.h"

namespace admission
{

// What an operator wants to know of a position first.
enum class State {
    absent,    // no card information: only other records name the position, or it was remembered
    offline,   // a card that is offline
    undecided, // online, with neither a request nor a result
    waiting,   // the daemon waits for answers: a request stands, and no result is newer
    passed,    // by a module's PASS, or by a result whose writer does not say how
    silence,   // admitted by time-out: somebody did not answer
    denied,    // by a module's DENY, or by a result whose writer does not say how
    exempt,    // a main board, which is never checked
    unasked,   // admitted, no module was registered
};

// What a state follows from. A change of a record sets one of these, and state_of() says what that makes of
// the card; a state is never carried on from the one before:
//
//   card information written, online    card              -> as what stands says; undecided when nothing does
//   card information written, offline   card              -> offline (exempt: stays)
//   card information deleted            card              -> absent
//   request written                     waits             -> waiting
//   request found whose check ended     -                 -> as what stands says
//   request deleted, check not decided  waits no more     -> as what stands says
//   result by an answer                 waits no more     -> passed, denied
//   result by a timer                   waits no more     -> silence
//   result by the card's information    waits no more     -> exempt, unasked
//   result that does not say how        waits no more     -> passed, denied
//   result found, older than a request  result            -> waiting
//   result deleted                      result            -> undecided
//   the daemon was restarted            waits no more     -> as what stands says, until it asks again
struct Standing {
    bool is_there = false;
    bool online = false;
    bool waits = false;              // a check is open
    std::optional<bool> result{};    // that stands: whether it says PASS
    Outcome cause = Outcome::unseen; // of the result
};

State state_of(const Standing &standing);

} // namespace admission

#endif
