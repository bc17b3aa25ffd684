// The doctor's checks of the daemon's work: cards, requests and answers.
//
// Each throws Failure, or std::exception with the server's words, where it cannot be made.
#ifndef DOCTOR_CARD_CHECKS_H
#define DOCTOR_CARD_CHECKS_H

#include "doctor/examination.h"

namespace cg
{

// No check is open for longer than its time-out.
Finding check_open_checks(Examination &examination);

// Every record decodes.
Finding check_records(ExaminedServer &server);

// Each online card has a request or a verdict.
Finding check_cards(Examination &examination);

// There are no stale acknowledgements.
Finding check_acknowledgements(Examination &examination);

} // namespace cg

#endif
