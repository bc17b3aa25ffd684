// A command that examines a card: what it is given, and what its end means.
#ifndef RUN_CHECK_COMMAND_H
#define RUN_CHECK_COMMAND_H

#include <optional>
#include <string>
#include <vector>

#include "core/check.h"

namespace cg
{

// The verdict of a command that has ended: exit status 0 is PASS, anything else DENY. The reason is the first
// line of its output, else of its errors. wait_status: see waitpid(2). time_limit_s is set when it was ended
// for having taken longer.
kit::Answer verdict_of(int wait_status, const std::string &output, const std::string &errors,
                       std::optional<double> time_limit_s);

// The environment of a command, "NAME=VALUE": that of this process, and the card.
std::vector<std::string> check_environment(const std::string &module, const kit::Facts &card);

} // namespace cg

#endif
