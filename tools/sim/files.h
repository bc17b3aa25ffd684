// Scenario files.
#ifndef SIM_FILES_H
#define SIM_FILES_H

#include <string>
#include <vector>

#include "base/output.h"
#include "scenario.h"

namespace cg
{

// Reads the files, "-" being standard input, and reports their mistakes. Throws Failure for a file that
// cannot be read; and one without a message when there are mistakes, since those were reported.
std::vector<scenario::Scenario> read_files(const Output &output, const std::vector<std::string> &files);

// Says of each scenario that there is no mistake in it. Returns the exit status.
int confirm(const Output &output, const std::vector<scenario::Scenario> &scenarios);

} // namespace cg

#endif
