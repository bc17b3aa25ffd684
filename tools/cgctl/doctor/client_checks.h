// The doctor's checks of what the store client keeps in the server, and of what comes of a write.
//
// Each throws Failure, or std::exception with the server's words, where it cannot be made.
#ifndef DOCTOR_CLIENT_CHECKS_H
#define DOCTOR_CLIENT_CHECKS_H

#include "doctor/examination.h"

namespace cg
{

// The functions are there, and of this version.
Finding check_functions(ExaminedServer &server);

// Each database has an identity, and the present run is registered in it.
Finding check_data_set(ExaminedServer &server);

// A canary arrives at a subscriber, in each database.
Finding check_notifications(ExaminedServer &server);

} // namespace cg

#endif
