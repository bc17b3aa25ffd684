// The verbs below `cgctl module` that have files of their own, and what they share.
#ifndef VERBS_MODULE_VERBS_H
#define VERBS_MODULE_VERBS_H

#include <string>

#include "command_line/session.h"
#include "command_line/verbs.h"

namespace cg
{

void add_module_test(CLI::App &module, Session &session);
void add_module_replay(CLI::App &module, Session &session);

// Adds --timeout, in seconds: 0.001 to 86400.
void add_time_limit(CLI::App &verb, double &seconds, const char *description);

// Throws Failure (wrong usage) when the daemon cannot know a module of this name.
void require_module_name(const std::string &name);

// Throws Failure (wrong usage) when there is no command behind "--", or none that can be executed. `example`
// is a correct command line.
void require_command(const Session &session, const std::string &example);

} // namespace cg

#endif
