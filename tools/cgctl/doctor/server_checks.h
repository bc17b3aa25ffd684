// The doctor's checks of the store server.
//
// Each throws Failure, or std::exception with the server's words, where it cannot be made.
#ifndef DOCTOR_SERVER_CHECKS_H
#define DOCTOR_SERVER_CHECKS_H

#include "doctor/examination.h"

namespace cg
{

// The settings of the store client can be used. Sets the patience of the checks behind it.
Finding check_settings(Examination &examination);

// The server answers, and knows the user of each database. Only then it is usable.
Finding check_store(ExaminedServer &server);

// It is of the right kind and version. Keeps its INFO.
Finding check_server(ExaminedServer &server);

// It is not a replica.
Finding check_server_role(ExaminedServer &server);

// Those of its databases that the daemon works with exist.
Finding check_databases(ExaminedServer &server);

// A full server deletes no records.
Finding check_eviction(ExaminedServer &server);

// A restarted server is not empty.
Finding check_persistence(ExaminedServer &server);

// Subscribers are not cut off early.
Finding check_buffers(ExaminedServer &server);

} // namespace cg

#endif
