// A module's name: whether the daemon can know it.
#ifndef MODULES_MODULE_NAME_H
#define MODULES_MODULE_NAME_H

#include <string>

#include "modules/contract.h"

namespace cg
{

// Returns one line that says what is wrong with the name and what would be right; empty when nothing is.
std::string name_problem(const std::string &name);

// The same in the words of a mistaken argument, also for a name that could not be shown as it is.
std::string module_name_mistake(const std::string &name);

} // namespace cg

#endif
