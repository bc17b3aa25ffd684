// The doctor's checks of who may do what.
//
// Each throws Failure, or std::exception with the server's words, where it cannot be made.
#ifndef DOCTOR_RIGHTS_CHECKS_H
#define DOCTOR_RIGHTS_CHECKS_H

#include "doctor/examination.h"

namespace cg
{

// Access lists are in use. Keeps whether they are.
Finding check_users(ExaminedServer &server);

// Each user has the rights that it needs and none of those tried besides, at each server of a group.
Finding check_rights(ExaminedServer &server);

// The user of each module is connected.
Finding check_module_clients(Examination &examination);

} // namespace cg

#endif
