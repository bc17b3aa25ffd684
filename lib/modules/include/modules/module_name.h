// A module's name: whether the daemon can know it, and whether it asks a module of that name.
#ifndef MODULES_MODULE_NAME_H
#define MODULES_MODULE_NAME_H

#include <string>

#include "modules/contract.h"

namespace cg
{

// Returns one line that says what is wrong with the name and what would be right; empty when nothing is.
std::string name_problem(const std::string &name);

// Returns one line that says why the daemon does not ask this module, as far as the folder of the check
// modules tells, and what to do; empty when it does, or when `folder` is empty.
std::string folder_problem(const std::string &folder, const std::string &name);

} // namespace cg

#endif
