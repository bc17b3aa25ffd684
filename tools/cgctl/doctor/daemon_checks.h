// The doctor's checks of the daemon.
//
// Each throws Failure, or std::exception with the server's words, where it cannot be made.
#ifndef DOCTOR_DAEMON_CHECKS_H
#define DOCTOR_DAEMON_CHECKS_H

#include "doctor/examination.h"

namespace cg
{

// The device has a role.
Finding check_role(Examination &examination);

// The debug shell answers. A daemon that cannot be there, for want of a server, is no fault of its own. Keeps
// the modules that the daemon registered.
Finding check_daemon(Examination &examination);

// The daemon is connected to each database whose server answers, and has subscribed.
Finding check_daemon_connections(Examination &examination);

// It asks the modules of the folder.
Finding check_daemon_modules(Examination &examination);

// It has modules, if it ever had some, as the recorder's file has it.
Finding check_registry(Examination &examination);

} // namespace cg

#endif
