// The doctor's checks of the folder of check modules.
//
// Each throws Failure, or std::exception with the server's words, where it cannot be made.
#ifndef DOCTOR_MODULE_CHECKS_H
#define DOCTOR_MODULE_CHECKS_H

#include "doctor/examination.h"

namespace cg
{

// The folder can be read, and is not empty. Keeps its entries.
Finding check_module_folder(Examination &examination);

// It has no more entries than the daemon registers.
Finding check_module_count(Examination &examination);

// Each entry is a name that a module can have.
Finding check_module_names(Examination &examination);

// No two entries are the same module to the daemon.
Finding check_duplicates(Examination &examination);

} // namespace cg

#endif
