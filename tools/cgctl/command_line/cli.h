// The command as a function, so that tests run it as a user does.
#ifndef COMMAND_LINE_CLI_H
#define COMMAND_LINE_CLI_H

#include <iosfwd>
#include <string>
#include <vector>

#include "command_line/verb_tree.h"

namespace cg
{

// Carries out one invocation.
//
// arguments  without the program's name.
// out, err   for data and for live messages.
// Returns the exit status: 0 done, 1 failed, 2 wrong usage.
int run(const std::vector<std::string> &arguments, std::ostream &out, std::ostream &err);

// Parses an invocation and carries out nothing. Returns what is wrong with it, or nothing at all ("") when
// the parser accepts it. What a verb checks itself is not checked.
std::string usage_problem(const std::vector<std::string> &arguments);

// All verbs that the help shows.
Verb all_verbs();

} // namespace cg

#endif
