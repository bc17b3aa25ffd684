// The command as a function, so that tests run it as a user does.
#ifndef CGCTL_CLI_H
#define CGCTL_CLI_H

#include <iosfwd>
#include <string>
#include <vector>

namespace cgctl
{

// Carries out one invocation.
//
// arguments  without the program's name.
// out, err   for data and for live messages.
// Returns the exit status: 0 done, 1 failed, 2 wrong usage.
int run(const std::vector<std::string> &arguments, std::ostream &out, std::ostream &err);

} // namespace cgctl

#endif
