// The doctor's check of a group of servers.
//
// Throws Failure, or std::exception with the server's words, where it cannot be made.
#ifndef DOCTOR_GROUP_CHECKS_H
#define DOCTOR_GROUP_CHECKS_H

#include "doctor/examination.h"

namespace cg
{

// Each sentinel names the same master, and each of its replicas answers and follows: a fail-over is possible.
Finding check_group(ExaminedServer &server);

} // namespace cg

#endif
