// What a result's cause says of how it came about, and what the causes of the daemon's other writes say.
//
// The daemon writes a result while it handles an answer, or a card's information, or when a timer fires; the
// store client says which. A cause names a record by its key.
#ifndef ADMISSION_EXPLANATION_H
#define ADMISSION_EXPLANATION_H

#include <optional>
#include <string>

#include "admission/decision.h"

namespace admission
{

struct Explanation {
    Outcome outcome = Outcome::unseen;  // passed, denied, silence, exempt, unasked; unseen: no cause is known
    std::string module{};               // whose answer it was
    uint64_t answer = 0;                // the revision of that answer
    std::optional<Position> position{}; // of the card; nothing where the cause does not say it
};

// `pass`: what the result says. `node_type`: of the card, to tell a main board.
Explanation explanation_of(bool pass, const store::Cause &cause, int32_t node_type);

// Whether a request was written by the daemon: it asks while it handles the card's information.
bool is_daemons_request(const store::Cause &cause, const Position &position);

// Whether the daemon deleted this module's answer since it read it; it also deletes answers unread, of a card
// that goes. An unknown cause may be either.
bool is_read(const store::Cause &cause, const Position &position, const std::string &module);

} // namespace admission

#endif
