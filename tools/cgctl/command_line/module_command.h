// What the verbs below `cgctl module` share: a module's name, its command behind "--", a time limit.
#ifndef COMMAND_LINE_MODULE_COMMAND_H
#define COMMAND_LINE_MODULE_COMMAND_H

#include <string>

#include "command_line/session.h"

namespace CLI
{
class App;
}

namespace cg
{

// Adds --timeout, in seconds: 0.001 to 86400.
void add_time_limit(CLI::App &verb, double &seconds, const char *description);

// Throws Failure (wrong usage) when the daemon cannot know a module of this name.
void require_module_name(const std::string &name);

// Throws Failure (wrong usage) when there is no command behind "--", or none that can be executed. `example`
// is a correct command line.
void require_command(const Session &session, const std::string &example);

} // namespace cg

#endif
